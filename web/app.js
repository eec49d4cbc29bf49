// The page: its state, and what becomes of clicks and keys.

import { html, render } from "./vendor/lit-html.js";
import { isJobFile, openHelp, openNewDownload, openRemoval, troubleText } from "./dialogs.js";
import { whole } from "./frame.js";
import { COLUMNS } from "./jobs.js";
import { narrow, rowHeight } from "./list.js";
import { setTheme, theme } from "./options.js";
import { Program } from "./program.js";
import { loadWords, speed, tr, trn } from "./words.js";

const program = new Program(() => draw());

const page = {
    view: { state: "", category: "", search: "", sort: "added", falls: true },
    jobs: [],
    selected: new Set(),
    cursor: null,
    anchor: null, // the other end of a selection by Shift
    scrolled: 0,
    seen: 600,
    tab: "segments",
    isOpen: false, // the details
    hasMenu: false, // views and categories, on a phone
    detailsWidth: 600,
    categoryName: program.categoryName,
    get emptyText() {
        if (program.status === "connecting") return "";
        if (program.jobs.size === 0) return tr("There are no downloads yet.");
        return tr("No download is in this view.");
    },
    scroll(top) {
        page.scrolled = top;
        draw();
    },
    sortBy(column) {
        const { view } = page;
        view.falls = view.sort === column ? !view.falls : Boolean(COLUMNS[column].falls);
        view.sort = column;
        draw();
    },
    clickRow(job, event) {
        if (narrow.matches && page.selected.size === 0) return page.openDetails(job);
        if (event.shiftKey) selectTo(job.gid);
        else if (event.ctrlKey || event.metaKey || narrow.matches) flip(job.gid);
        else choose(job.gid);
        draw();
    },
    tell: (error) => say(troubleText(error)),
    toggle(job, event) {
        event.stopPropagation();
        if (event.shiftKey) selectTo(job.gid);
        else flip(job.gid);
        draw();
    },
    openDetails(job) {
        page.cursor = job.gid;
        if (!page.isOpen && narrow.matches) history.pushState({ details: true }, "");
        page.isOpen = true;
        watch();
    },
    closeDetails() {
        if (history.state?.details) return history.back();
        page.isOpen = false;
        watch();
        document.getElementById("grid")?.focus();
    },
    chooseTab(tab) {
        page.tab = tab;
        draw();
    },
    setMenu(isShown) {
        page.hasMenu = isShown;
        draw();
    },
    draw,
    restart,
    start,
    stop,
    move,
    remove,
    listKey,
    chosenJobs,
};

// ---- The selection.

function choose(gid) {
    page.selected = new Set([gid]);
    page.cursor = page.anchor = gid;
    watch();
}

function flip(gid) {
    if (!page.selected.delete(gid)) page.selected.add(gid);
    page.cursor = page.anchor = gid;
    watch();
}

function selectTo(gid) {
    const place = (one) => page.jobs.findIndex((job) => job.gid === one);
    const [first, last] = [place(page.anchor ?? gid), place(gid)].sort((left, right) => left - right);
    page.selected = new Set(page.jobs.slice(Math.max(first, 0), last + 1).map((job) => job.gid));
    page.cursor = gid;
    watch();
}

function watch() {
    const wanted = page.isOpen ? page.cursor : null;
    if (wanted !== program.watched) {
        program.watched = wanted;
        program.refresh();
    }
    draw();
}

function chosenJobs() {
    const gids = page.selected.size > 0 ? [...page.selected] : [page.cursor];
    return gids.map(program.jobs.get).filter(Boolean);
}

// ---- Actions.

/** Shows a sentence for some seconds, with a button where there is something to do about it. */
function say(text, button = null) {
    const message = document.createElement("div");
    render(html`<span>${text}</span>${button ? html`<button @click=${button.act}>${button.title}</button>` : ""}`, message);
    document.getElementById("messages").append(message);
    message.addEventListener("click", () => message.remove());
    setTimeout(() => message.remove(), 8000);
}

async function act(method, ...params) {
    try {
        await program.call(method, ...params);
    } catch (error) {
        say(troubleText(error));
    }
}

function start() {
    act("vantlow.start", chosenJobs().map((job) => job.gid));
}

function stop() {
    act("vantlow.stop", chosenJobs().map((job) => job.gid));
}

async function move(step) {
    const waiting = chosenJobs().filter((job) => job.state === "waiting");
    waiting.sort((left, right) => (left.place - right.place) * -step); // none of them passes another one
    const calls = waiting.map((job) => ["aria2.changePosition", job.gid, step, "POS_CUR"]);
    const answers = await program.all(calls).catch((error) => [error]);
    const trouble = answers.find((answer) => answer instanceof Error);
    if (trouble) say(troubleText(trouble));
}

function remove(withFiles = false) {
    const jobs = chosenJobs();
    if (jobs.length === 0) return;
    openRemoval(program, jobs, withFiles, () => {
        page.selected.clear();
        if (page.isOpen && jobs.some((job) => job.gid === page.cursor)) page.closeDetails();
        watch();
        const undo = { title: tr("Un&do the removal"), act: () => act("vantlow.undoRemoval") };
        say(trn("%1 download is removed.", "%1 downloads are removed.", jobs.length), undo);
    });
}

// ---- Keys.

function listKey(event) {
    if (event.target.closest("button") || (event.key === " " && event.target.closest("input"))) return;
    const lines = Math.floor(page.seen / rowHeight());
    const step = { ArrowDown: 1, ArrowUp: -1, PageDown: lines, PageUp: -lines, Home: -Infinity, End: Infinity }[event.key];
    const keys = {
        Enter: () => program.jobs.has(page.cursor) && page.openDetails(program.jobs.get(page.cursor)),
        " ": () => page.cursor && flip(page.cursor),
        Delete: () => remove(event.shiftKey),
        s: start,
        p: stop,
        a: () => (page.selected = new Set(page.jobs.map((job) => job.gid))),
    };
    if (event.altKey && Math.abs(step) === 1) move(step);
    else if (step) moveCursor(step, event.shiftKey);
    else if (keys[event.key] && (event.key === "a") === (event.ctrlKey || event.metaKey)) keys[event.key]();
    else return;
    event.preventDefault();
    draw();
}

function moveCursor(step, isSelecting) {
    if (page.jobs.length === 0) return;
    const now = page.jobs.findIndex((job) => job.gid === page.cursor);
    const at = Math.min(Math.max(now + step, 0), page.jobs.length - 1);
    if (isSelecting) selectTo(page.jobs[at].gid);
    else choose(page.jobs[at].gid);
    const list = document.getElementById("list");
    const top = at * rowHeight();
    if (top < list.scrollTop) list.scrollTop = top;
    if (top + rowHeight() > list.scrollTop + page.seen) list.scrollTop = top + rowHeight() - page.seen;
}

document.addEventListener("keydown", (event) => {
    const isTyping = event.target.closest?.("input:not([type=checkbox]), textarea, select, dialog");
    if (event.key === "Escape" && !event.target.closest?.("dialog")) {
        page.hasMenu = false;
        if (page.isOpen) page.closeDetails();
        draw();
    }
    if (isTyping || event.ctrlKey || event.altKey || event.metaKey || program.asksForSecret) return;
    const keys = { "/": () => document.getElementById("search").focus(), "?": openHelp, n: () => openNewDownload(program) };
    if (!keys[event.key]) return;
    event.preventDefault();
    keys[event.key]();
});

// On a phone the way back leads from the details to the list.
window.addEventListener("popstate", () => {
    page.isOpen = false;
    watch();
});

// ---- Files and links that are dropped; fields take them by themselves.

const isField = (event) => event.target.closest?.("input, textarea");
document.addEventListener("dragover", (event) => isField(event) || event.preventDefault());
document.addEventListener("drop", (event) => {
    if (isField(event)) return;
    event.preventDefault();
    if (program.asksForSecret || document.querySelector("dialog[open]")) return;
    const files = [...event.dataTransfer.files].filter((file) => isJobFile(file.name));
    const links = event.dataTransfer.getData("text/uri-list") || event.dataTransfer.getData("text/plain");
    const text = links.split("\n").filter((line) => !line.startsWith("#")).join("\n").trim();
    if (files.length > 0 || text) openNewDownload(program, { files, text });
});

let isAsked = false;

/** Draws the page with the next frame, however often it is asked for. */
function draw() {
    if (isAsked) return;
    isAsked = true;
    requestAnimationFrame(() => {
        isAsked = false;
        page.jobs = program.jobs.rows(page.view, program.categoryName);
        for (const gid of page.selected) if (!program.jobs.has(gid)) page.selected.delete(gid);
        render(whole(page, program), document.getElementById("app"));
        for (const id of ["list", "tab-content"]) watchSize(document.getElementById(id));
        document.title = program.speed > 0 ? `${speed(program.speed)} – Vantlow` : "Vantlow";
    });
}

const watched = new WeakSet();

function watchSize(element) {
    if (!element || watched.has(element)) return;
    watched.add(element);
    sizes.observe(element);
}

const sizes = new ResizeObserver((entries) => {
    for (const { target, contentRect } of entries) {
        if (target.id === "list") page.seen = contentRect.height;
        else page.detailsWidth = contentRect.width;
    }
    draw();
});

async function restart() {
    await loadWords();
    draw();
}

setTheme(theme());
narrow.addEventListener("change", () => draw());
await loadWords();
program.refresh();
