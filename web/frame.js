// The frame of the page: the bars at the top and the bottom, views and categories, the tools, the login.

import { html } from "./vendor/lit-html.js";
import { detailsPanel } from "./details.js";
import { openCategory, openCategoryForm, openHelp, openLimits, openNewDownload } from "./dialogs.js";
import { COLUMNS, STATES } from "./jobs.js";
import { columnTitle, jobList } from "./list.js";
import { isDark, openOptions, setTheme } from "./options.js";
import { sign, speedPicture } from "./pictures.js";
import { questionBar } from "./questions.js";
import { openSchedule } from "./schedule.js";
import { capital, number, speed, tr, trn } from "./words.js";

const tool = (name, title, act, isOff = false) =>
    html`<button class="tool" ?disabled=${isOff} title=${title} @click=${act}>${sign(name)}<span>${title}</span></button>`;
const icon = (name, title, act) =>
    html`<button class="icon" title=${title} aria-label=${title} @click=${act}>${sign(name)}</button>`;

function topBar(page, program) {
    return html`<header class="top">
        <button
            class="icon menu"
            aria-label=${tr("Categories")}
            aria-expanded=${page.hasMenu}
            @click=${() => page.setMenu(!page.hasMenu)}
        >
            ${sign("menu")}
        </button>
        <h1><img src="icon.svg" alt="" /><span>Vantlow</span></h1>
        <label class="search">
            ${sign("search")}
            <input id="search" type="search" placeholder=${tr("Search downloads")} aria-label=${tr("Search downloads")}
                .value=${page.view.search} @input=${(event) => {
                    page.view.search = event.target.value;
                    page.draw();
                }} />
        </label>
        <button class="rate" title=${tr("&Limit speed")} @click=${() => openLimits(program)}>
            ${sign("limit")}<span>${speed(program.speed)}</span>
            <small>${program.limit === null ? tr("No limit") : tr("Limit %1", speed(program.limit))}</small>
        </button>
        ${icon(isDark() ? "light" : "dark", isDark() ? tr("light") : tr("dark"), () => {
            setTheme(isDark() ? "light" : "dark");
            page.draw();
        })}
        ${icon("options", tr("&Options..."), () => openOptions(program, page.restart))} ${icon("help", tr("Keys"), openHelp)}
    </header>`;
}

function sideBar(page, program) {
    const { counts } = program.jobs;
    const entry = (name, title, count, where) => {
        const isHere = page.view.state === (where.state ?? "") && page.view.category === (where.category ?? "");
        const go = () => {
            Object.assign(page.view, { state: "", category: "" }, where);
            if (where.state === "waiting") Object.assign(page.view, { sort: "state", falls: false });
            page.hasMenu = false;
            document.getElementById("list").scrollTop = 0;
            page.draw();
        };
        return html`<li>
            <button aria-current=${isHere ? "true" : "false"} @click=${go}>
                ${sign(name)}<span>${title}</span><b>${number(count)}</b>
            </button>
        </li>`;
    };
    const chosen = program.categories.find((one) => one.id === page.view.category);
    return html`<nav class="side ${page.hasMenu ? "shown" : ""}" aria-label=${tr("&View")}>
        <ul>
            ${entry("all", tr("All downloads"), counts.all, {})}
            ${STATES.map((state) => entry(state, capital(tr(state)), counts[state], { state }))}
        </ul>
        <h2>
            ${tr("Categories")}
            ${chosen ? icon("edit", tr("&Edit category..."), () => openCategoryForm(program, chosen)) : ""}
            ${icon("add", tr("New &category..."), () => openCategoryForm(program, null, (chosen ?? program.categories[0]).id))}
        </h2>
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

function toolBar(page, program) {
    const jobs = page.chosenJobs();
    const none = jobs.length === 0;
    const has = (...states) => jobs.some((job) => states.includes(job.state));
    const count = page.selected.size > 1 ? trn("%1 selected", "%1 selected", page.selected.size) : "";
    return html`<div class="tools" role="toolbar" aria-label=${tr("&Toolbar")}>
        <button class="tool main" @click=${() => openNewDownload(program)} title=${tr("&New download...")}>
            ${sign("add")}<span>${tr("&New download...")}</span>
        </button>
        ${tool("start", tr("&Start"), page.start, !has("stopped", "failed"))}
        ${tool("stop", tr("S&top"), page.stop, !has("running", "waiting"))}
        ${tool("up", tr("&Up"), () => page.move(-1), !has("waiting"))}
        ${tool("down", tr("&Down"), () => page.move(1), !has("waiting"))}
        ${tool("limit", tr("Speed limit"), () => openLimits(program, jobs), none)}
        ${tool("category", tr("Category"), () => openCategory(program, jobs), none)}
        ${tool("schedule", tr("Schedule"), () => openSchedule(program, jobs).catch(page.tell), none)}
        ${tool("remove", tr("&Remove"), () => page.remove(), none)}
        <span class="count">${count}</span>
        ${sorting(page)}
    </div>`;
}

// On a phone there are no headings to click at.
const sorting = (page) =>
    html`<span class="sorting">${sign("sort")}
        <select aria-label=${tr("Sort by")} title=${tr("Sort by")} @change=${(event) => page.sortBy(event.target.value)}>
            ${Object.keys(COLUMNS).map(
                (column) => html`<option value=${column} ?selected=${page.view.sort === column}>${columnTitle(column)}</option>`,
            )}
        </select>
    </span>`;

function statusBar(program) {
    const { counts } = program.jobs;
    return html`<footer class="status">
        <span>${trn("%1 download", "%1 downloads", counts.all)}</span>
        <span>${trn("%1 running", "%1 running", counts.running)}</span>
        <span>${trn("%1 waiting", "%1 waiting", counts.waiting)}</span>
        <span>${program.isLive ? "" : tr("asked once a second")}</span>
    </footer>`;
}

function login(program) {
    const submit = (event) => {
        event.preventDefault();
        program.logIn(event.target.elements.secret.value);
    };
    const wrong = html`<p class="problem" role="alert">${sign("failed")}<span>${tr("This is not the secret.")}</span></p>`;
    return html`<main class="login">
        <form @submit=${submit}>
            <h1><img src="icon.svg" alt="" /><span>Vantlow</span></h1>
            <label class="field"><span>${tr("Secret")}</span>
                <input name="secret" type="password" autofocus autocomplete="current-password" /></label>
            ${program.wasWrong ? wrong : ""}
            <button class="main">${tr("&Log in")}</button>
            <p class="hint">${tr("On the machine where Vantlow runs, this command shows it:")} <code>vantlow rpc secret</code></p>
        </form>
    </main>`;
}

function troubleBar(program) {
    if (program.status !== "unreachable" && program.status !== "failing") return "";
    const what = program.status === "failing" ? program.trouble : tr("Vantlow cannot be reached.");
    return html`<p class="bar away" role="alert">${sign("failed")}<span>${what} ${tr("It is tried again and again.")}</span></p>`;
}

/** Everything; `page` is the state of app.js. */
export function whole(page, program) {
    if (program.asksForSecret) return login(program);
    const job = page.isOpen ? program.jobs.get(page.cursor) : null;
    return html`<div class="app ${job ? "with-details" : ""}">
        ${topBar(page, program)} ${sideBar(page, program)}
        ${page.hasMenu ? html`<button class="veil" aria-label=${tr("&Close")} @click=${() => page.setMenu(false)}></button>` : ""}
        <main>
            ${troubleBar(program)} ${questionBar(program)} ${toolBar(page, program)} ${jobList(page)}
            ${job ? detailsPanel(page, job, program.details) : ""}
        </main>
        ${statusBar(program)}
    </div>`;
}
