// The program as the page knows it: asked once a second while somebody looks, told what to do, and shown as "unreachable"
// where it does not answer.

import { Connection, Locked, Refused, Unreachable } from "./connection.js";
import { Jobs } from "./jobs.js";
import { trData } from "./words.js";

const SECRET = "vantlow.secret"; // in sessionStorage, which ends with the tab
const PAGE = 500; // jobs of one answer
const SECOND = 1000;
const UNSEEN = 15 * SECOND; // between two looks while the page is hidden
const HISTORY = 300 * SECOND;
const FIGURES = ["gid", "downloadSpeed", "completedLength", "totalLength", "connections"];

export class Program {
    status = "connecting"; // or "locked", "ready", "unreachable", "failing"
    trouble = ""; // why it is "failing"
    wasWrong = false; // the secret that was given last
    jobs = new Jobs();
    categories = [];
    questions = [];
    limit = null; // bytes a second for everything; null: none
    atOnce = null; // jobs
    speed = 0;
    samples = []; // {time, speed} of the last minutes
    details = null; // of the job that `watched` names: {gid, job, log, files}
    watched = null;

    #connection = new Connection(() => this.#soon());
    #changed;
    #revision = -1;
    #session = null;
    #timer = null;
    #busy = null;
    #failures = 0;

    /** `changed` is called whenever there is something new to show. */
    constructor(changed) {
        this.#changed = changed;
        this.#connection.secret = sessionStorage.getItem(SECRET) ?? "";
        document.addEventListener("visibilitychange", () => this.status !== "locked" && this.refresh());
    }

    /** A secret is needed, or may be: none was given in this tab. */
    get asksForSecret() {
        return this.status === "locked" || (this.status === "connecting" && !sessionStorage.getItem(SECRET));
    }

    get isLive() {
        return this.#connection.isLive;
    }

    /** Tries the secret; `status` and `wasWrong` tell what came of it. */
    async logIn(secret) {
        this.#connection.secret = secret;
        await this.#busy;
        await this.refresh();
        this.wasWrong = this.status === "locked";
        if (this.status === "ready") sessionStorage.setItem(SECRET, secret);
        this.#changed();
    }

    logOut() {
        sessionStorage.removeItem(SECRET);
        location.reload();
    }

    /** The result of a call, after which the list is looked at anew. Throws as Connection.call(). */
    async call(method, ...params) {
        try {
            return await this.#connection.call(method, ...params);
        } finally {
            this.#soon();
        }
    }

    /** The results of several calls, each its own or an Error. */
    async all(calls) {
        try {
            return await this.#connection.all(calls);
        } finally {
            this.#soon();
        }
    }

    /** Looks at the program now, and again after a while. One look at a time. */
    refresh() {
        clearTimeout(this.#timer);
        this.#busy ??= this.#look().finally(() => {
            this.#busy = null;
            const wait = document.hidden ? UNSEEN : Math.min(SECOND * 2 ** this.#failures, 8 * SECOND);
            if (this.status !== "locked") this.#timer = setTimeout(() => this.refresh(), wait);
            this.#changed();
        });
        return this.#busy;
    }

    // Shortly after a notification or a call: several that come together are one look.
    #soon() {
        clearTimeout(this.#timer);
        this.#timer = setTimeout(() => this.refresh(), SECOND / 20);
    }

    async #look() {
        try {
            await this.#lookAtRest(await this.#lookAtList());
            this.status = "ready";
            this.#failures = 0;
            this.#connection.open();
        } catch (error) {
            this.status = error instanceof Locked ? "locked" : error instanceof Unreachable ? "unreachable" : "failing";
            this.trouble = error.message;
            ++this.#failures;
        }
    }

    async #lookAtList() {
        const asked = { session: this.#session, since: this.#revision, limit: PAGE };
        const calls = [
            ["vantlow.list", this.#revision < 0 ? { limit: PAGE } : asked],
            ["vantlow.statistics"],
            ["aria2.tellActive", FIGURES],
        ];
        const [list, statistics, active] = results(await this.#connection.all(calls));
        const waits = (gid) => this.jobs.get(gid)?.state === "waiting";
        const hasNewOrder = list.jobs.some((job) => job.state === "waiting" || waits(job.gid)) || list.removed.some(waits);
        if (list.everything) await this.#readAll(list);
        else this.jobs.take(list);
        this.#session = list.session;
        this.#revision = list.revision;
        this.jobs.takeFigures(active);
        this.speed = statistics.downSpeed;
        const now = Date.now();
        this.samples.push({ time: now, speed: this.speed });
        while (this.samples[0].time < now - HISTORY) this.samples.shift();
        return { ...list, hasNewOrder: hasNewOrder || list.everything };
    }

    // A list that does not fit into one answer comes in several. Changes meanwhile are told with the next look, since the
    // revision is that of the first answer.
    async #readAll(first) {
        const found = [...first.jobs];
        for (let last = first; last.jobs.length === PAGE; ) {
            last = await this.#connection.call("vantlow.list", { offset: found.length, limit: PAGE });
            found.push(...last.jobs);
            if (last.session !== first.session) break;
        }
        this.jobs.clear();
        this.jobs.take({ jobs: found, removed: [] });
    }

    async #lookAtRest(changes) {
        const wanted = [];
        const want = (call, take) => wanted.push({ call, take });
        if (changes.categories) want(["vantlow.categories"], (result) => (this.categories = result));
        if (changes.questions) want(["vantlow.questions"], (result) => (this.questions = result));
        if (changes.settings) {
            want(["vantlow.limits"], (result) => (this.limit = result.down));
            want(["aria2.getGlobalOption"], (result) => (this.atOnce = result["max-concurrent-downloads"] ?? null));
        }
        if (changes.hasNewOrder && this.jobs.counts.waiting > 0)
            want(["aria2.tellWaiting", 0, 1000, ["gid"]], (result) => this.jobs.takeOrder(result.map(({ gid }) => gid)));
        this.#wantDetails(want);
        if (wanted.length === 0) return;
        const answers = await this.#connection.all(wanted.map(({ call }) => call));
        for (const [at, answer] of answers.entries()) if (!(answer instanceof Refused)) wanted[at].take(answer);
    }

    #wantDetails(want) {
        const gid = this.watched;
        if (!gid || !this.jobs.has(gid)) return (this.details = null);
        const details = this.details?.gid === gid ? { ...this.details } : { gid, job: null, log: [], files: [], peers: [] };
        want(["vantlow.job", gid], (result) => (details.job = result));
        want(["vantlow.log", gid], (result) => (details.log = result));
        want(["aria2.getFiles", gid], (result) => (details.files = result));
        want(["aria2.getPeers", gid], (result) => (details.peers = result));
        this.details = details;
    }

    /** The name of a category; empty where there is none. */
    categoryName = (id) => trData(this.categories.find((one) => one.id === id)?.name ?? "");
}

function results(answers) {
    const refused = answers.find((answer) => answer instanceof Error);
    if (refused) throw refused;
    return answers;
}
