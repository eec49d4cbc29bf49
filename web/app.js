// The page: its state, its frame, and what becomes of clicks and keys.

import { html, render } from "./vendor/lit-html.js";
import { detailsPanel } from "./details.js";
import { isJobFile, openHelp, openLimits, openNewDownload, openRemoval, troubleText } from "./dialogs.js";
import { COLUMNS, STATES } from "./jobs.js";
import { columnTitle, jobList, narrow, rowHeight } from "./list.js";
import { isDark, openOptions, setTheme, theme } from "./options.js";
import { sign, speedPicture } from "./pictures.js";
import { Program } from "./program.js";
import { questionBar } from "./questions.js";
import { capital, loadWords, number, speed, tr, trn } from "./words.js";

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
    listKey,
};

// ---- What is chosen.

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

const chosenJobs = () => {
    const gids = page.selected.size > 0 ? [...page.selected] : [page.cursor];
    return gids.map(program.jobs.get).filter(Boolean);
};

// ---- What is done.

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

const start = () => act("vantlow.start", chosenJobs().map((job) => job.gid));
const stop = () => act("vantlow.stop", chosenJobs().map((job) => job.gid));

async function move(step) {
    const waiting = chosenJobs().filter((job) => job.state === "waiting").sort((left, right) => (left.place - right.place) * -step);
    const answers = await program.all(waiting.map((job) => ["aria2.changePosition", job.gid, step, "POS_CUR"])).catch((error) => [error]);
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
        const undo = { title: tr("&Undo the removal"), act: () => act("vantlow.undoRemoval") };
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

// ---- The frame.

const tool = (name, title, act, isOff = false) =>
    html`<button class="tool" ?disabled=${isOff} title=${title} @click=${act}>${sign(name)}<span>${title}</span></button>`;
const icon = (name, title, act) =>
    html`<button class="icon" title=${title} aria-label=${title} @click=${act}>${sign(name)}</button>`;

function topBar() {
    return html`<header class="top">
        <button class="icon menu" aria-label=${tr("Categories")} aria-expanded=${page.hasMenu} @click=${() => setMenu(!page.hasMenu)}>
            ${sign("menu")}
        </button>
        <h1><img src="icon.svg" alt="" /><span>Vantlow</span></h1>
        <label class="search">
            ${sign("search")}
            <input id="search" type="search" placeholder=${tr("Search downloads")} aria-label=${tr("Search downloads")}
                .value=${page.view.search} @input=${(event) => {
                    page.view.search = event.target.value;
                    draw();
                }} />
        </label>
        <button class="rate" title=${tr("&Limit speed")} @click=${() => openLimits(program)}>
            ${sign("limit")}<span>${speed(program.speed)}</span>
            <small>${program.limit === null ? tr("No limit") : tr("Limit %1", speed(program.limit))}</small>
        </button>
        ${icon(isDark() ? "light" : "dark", isDark() ? tr("light") : tr("dark"), () => {
            setTheme(isDark() ? "light" : "dark");
            draw();
        })}
        ${icon("options", tr("&Options..."), () => openOptions(program, restart))} ${icon("help", tr("Keys"), openHelp)}
    </header>`;
}

function setMenu(isShown) {
    page.hasMenu = isShown;
    draw();
}

function sideBar() {
    const { counts } = program.jobs;
    const entry = (name, title, count, where) => {
        const isHere = page.view.state === (where.state ?? "") && page.view.category === (where.category ?? "");
        const go = () => {
            Object.assign(page.view, { state: "", category: "" }, where);
            if (where.state === "waiting") Object.assign(page.view, { sort: "state", falls: false });
            page.hasMenu = false;
            document.getElementById("list").scrollTop = 0;
            draw();
        };
        return html`<li>
            <button aria-current=${isHere ? "true" : "false"} @click=${go}>
                ${sign(name)}<span>${title}</span><b>${number(count)}</b>
            </button>
        </li>`;
    };
    return html`<nav class="side ${page.hasMenu ? "shown" : ""}" aria-label=${tr("&View")}>
        <ul>
            ${entry("all", tr("All downloads"), counts.all, {})}
            ${STATES.map((state) => entry(state, capital(tr(state)), counts[state], { state }))}
        </ul>
        <h2>${tr("Categories")}</h2>
        <ul>
            ${inTree(program.categories).map(({ one, depth }) =>
                html`<div class="depth-${Math.min(depth, 3)}">
                    ${entry("category", program.categoryName(one.id), counts.categories[one.id] ?? 0, { category: one.id })}
                </div>`)}
        </ul>
        ${speedPicture(program.samples)}
    </nav>`;
}

/** The categories, each behind its parent. */
function inTree(categories, parent = null, depth = 0) {
    const here = categories.filter((one) => one.parent === parent);
    return here.flatMap((one) => [{ one, depth }, ...inTree(categories, one.id, depth + 1)]);
}

function toolBar() {
    const jobs = chosenJobs();
    const none = jobs.length === 0;
    const has = (...states) => jobs.some((job) => states.includes(job.state));
    const count = page.selected.size > 1 ? trn("%1 selected", "%1 selected", page.selected.size) : "";
    return html`<div class="tools" role="toolbar" aria-label=${tr("&Toolbar")}>
        <button class="tool main" @click=${() => openNewDownload(program)} title=${tr("&New download...")}>
            ${sign("add")}<span>${tr("&New download...")}</span>
        </button>
        ${tool("start", tr("&Start"), start, !has("stopped", "failed"))}
        ${tool("stop", tr("S&top"), stop, !has("running", "waiting"))} ${tool("up", tr("&Up"), () => move(-1), !has("waiting"))}
        ${tool("down", tr("&Down"), () => move(1), !has("waiting"))} ${tool("limit", tr("Speed limit"), () => openLimits(program, jobs), none)}
        ${tool("remove", tr("&Remove"), () => remove(), none)}
        <span class="count">${count}</span>
        ${sorting()}
    </div>`;
}

// On a phone there are no headings to click at.
const sorting = () =>
    html`<select class="sorting" aria-label=${tr("Sort by")} @change=${(event) => page.sortBy(event.target.value)}>
        ${Object.keys(COLUMNS).map((column) => html`<option value=${column} ?selected=${page.view.sort === column}>${columnTitle(column)}</option>`)}
    </select>`;

function statusBar() {
    const { counts } = program.jobs;
    return html`<footer class="status">
        <span>${trn("%1 download", "%1 downloads", counts.all)}</span>
        <span>${trn("%1 running", "%1 running", counts.running)}</span>
        <span>${trn("%1 waiting", "%1 waiting", counts.waiting)}</span>
        <span>${program.isLive ? "" : tr("asked once a second")}</span>
    </footer>`;
}

function login() {
    const submit = (event) => {
        event.preventDefault();
        program.logIn(event.target.elements.secret.value);
    };
    return html`<main class="login">
        <form @submit=${submit}>
            <h1><img src="icon.svg" alt="" /><span>Vantlow</span></h1>
            <label class="field"><span>${tr("Secret")}</span>
                <input name="secret" type="password" autofocus autocomplete="current-password" /></label>
            ${program.wasWrong ? html`<p class="problem" role="alert">${sign("failed")}<span>${tr("This is not the secret.")}</span></p>` : ""}
            <button class="main">${tr("&Log in")}</button>
            <p class="hint">${tr("On the machine where Vantlow runs, this command shows it:")} <code>vantlow rpc secret</code></p>
        </form>
    </main>`;
}

function troubleBar() {
    if (program.status !== "unreachable" && program.status !== "failing") return "";
    const what = program.status === "failing" ? program.trouble : tr("Vantlow cannot be reached.");
    return html`<p class="bar away" role="alert">${sign("failed")}<span>${what} ${tr("It is tried again and again.")}</span></p>`;
}

function whole() {
    if (program.asksForSecret) return login();
    const job = page.isOpen ? program.jobs.get(page.cursor) : null;
    page.jobs = program.jobs.rows(page.view, program.categoryName);
    return html`<div class="app ${job ? "with-details" : ""}">
        ${topBar()} ${sideBar()}
        ${page.hasMenu ? html`<button class="veil" aria-label=${tr("&Close")} @click=${() => setMenu(false)}></button>` : ""}
        <main>
            ${troubleBar()} ${questionBar(page, program)} ${toolBar()} ${jobList(page)}
            ${job ? detailsPanel(page, job, program.details) : ""}
        </main>
        ${statusBar()}
    </div>`;
}

let isAsked = false;

/** Draws the page with the next frame, however often it is asked for. */
function draw() {
    if (isAsked) return;
    isAsked = true;
    requestAnimationFrame(() => {
        isAsked = false;
        for (const gid of page.selected) if (!program.jobs.has(gid)) page.selected.delete(gid);
        render(whole(), document.getElementById("app"));
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
