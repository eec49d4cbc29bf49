// The jobs of the program as they were told last, and the rows of a view of them.

import { compare } from "./words.js";

export const STATES = ["running", "waiting", "stopped", "finished", "failed"];

/** The columns in their order: how a cell's value is had for sorting, and which way is asked for first. */
export const COLUMNS = {
    name: { value: nameOf },
    size: { value: (job) => job.size ?? -1, falls: true },
    done: { value: (job) => share(job), falls: true },
    speed: { value: (job) => job.speed, falls: true },
    left: { value: (job) => job.secondsLeft ?? Infinity },
    state: { value: (job) => STATES.indexOf(job.state) * 1e6 + (job.place ?? 0) },
    category: { value: (job) => job.category },
    added: { value: (job) => job.created ?? "", falls: true },
};

/** The job's name; while nobody knows it, the last part of the address, or what a magnet link calls it. */
export function nameOf(job) {
    if (job.name) return job.name;
    const [place, query = ""] = job.address.split(/[?#]/);
    const part = place === "magnet:" ? new URLSearchParams(query).get("dn") : place.slice(place.lastIndexOf("/") + 1);
    try {
        return (place === "magnet:" ? part : decodeURIComponent(part)) || job.address;
    } catch {
        return part;
    }
}

/** The part of the file that is there, 0 to 1. */
export function share(job) {
    if (job.state === "finished") return 1;
    return job.size > 0 ? Math.min(job.done / job.size, 1) : 0;
}

export class Jobs {
    #all = new Map();
    #descriptions = new Map(); // the gid that a torrent has until its description is known, and its own
    #version = 0;
    #rows = { key: "", jobs: [] };
    #counts = { version: -1 };

    get = (gid) => this.#all.get(gid);
    has = (gid) => this.#all.has(gid);
    get size() {
        return this.#all.size;
    }

    #shown = (gid) => this.#all.get(this.#descriptions.get(gid) ?? gid);

    clear() {
        this.#all.clear();
        this.#descriptions.clear();
        ++this.#version;
    }

    /** Takes an answer of vantlow.list; what was there stays where it does not say otherwise. */
    take({ jobs, removed }) {
        for (const job of jobs) {
            this.#all.set(job.gid, { ...job, place: this.#all.get(job.gid)?.place });
            if (job.descriptionGid) this.#descriptions.set(job.descriptionGid, job.gid);
        }
        for (const gid of removed) {
            this.#descriptions.delete(this.#all.get(gid)?.descriptionGid);
            this.#all.delete(gid);
        }
        if (jobs.length + removed.length > 0) ++this.#version;
    }

    /** Takes the figures of the running jobs, which move without a change of the list. */
    takeFigures(active) {
        for (const { gid, downloadSpeed, completedLength, totalLength, connections } of active) {
            const job = this.#shown(gid);
            if (!job || job.state !== "running") continue;
            const [speed, done, size] = [downloadSpeed, completedLength, totalLength].map(Number);
            Object.assign(job, { speed, done, size: size || job.size, connections: Number(connections) });
            job.secondsLeft = speed > 0 && size > 0 ? Math.ceil((size - done) / speed) : null;
        }
        if (active.length > 0) ++this.#version;
    }

    /** Takes the order of the jobs that wait. */
    takeOrder(gids) {
        const waiting = gids.map((gid) => this.#shown(gid)).filter((job) => job?.state === "waiting");
        for (const [at, job] of waiting.entries()) job.place = at + 1;
        ++this.#version;
    }

    /** How many jobs there are: all, in each state, and in each category by its id. */
    get counts() {
        if (this.#counts.version === this.#version) return this.#counts;
        const counts = { version: this.#version, all: this.#all.size, categories: {} };
        for (const state of STATES) counts[state] = 0;
        for (const { state, category } of this.#all.values()) {
            ++counts[state];
            counts.categories[category] = (counts.categories[category] ?? 0) + 1;
        }
        return (this.#counts = counts);
    }

    /**
     * The jobs of a view in order. `view`: {state, category, search, sort, falls}; state and category are empty for all, the
     * search's words must all stand in name, address or comment.
     */
    rows(view, categoryName) {
        const key = JSON.stringify([view, this.#version]);
        if (this.#rows.key === key) return this.#rows.jobs;
        const words = view.search.toLowerCase().split(/\s+/).filter(Boolean);
        const jobs = [...this.#all.values()].filter((job) => {
            if (view.state && job.state !== view.state) return false;
            if (view.category && job.category !== view.category) return false;
            if (words.length === 0) return true;
            const text = `${job.name}\n${job.address}\n${job.comment}`.toLowerCase();
            return words.every((word) => text.includes(word));
        });
        const value = view.sort === "category" ? (job) => categoryName(job.category) : COLUMNS[view.sort].value;
        this.#rows = { key, jobs: sorted(jobs, value, view.falls) };
        return this.#rows.jobs;
    }
}

function sorted(jobs, value, falls) {
    const keyed = jobs.map((job, at) => ({ job, at, key: value(job) }));
    const order = (left, right) => {
        if (typeof left.key === "string") return compare(left.key, right.key);
        return left.key === right.key ? 0 : left.key < right.key ? -1 : 1;
    };
    keyed.sort((left, right) => (falls ? order(right, left) : order(left, right)) || left.at - right.at);
    return keyed.map(({ job }) => job);
}
