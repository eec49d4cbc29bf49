// The details of the chosen job, in tabs.

import { html } from "./vendor/lit-html.js";
import { nameOf } from "./jobs.js";
import { stateText } from "./list.js";
import { segmentsPicture, sign } from "./pictures.js";
import { capital, moment, number, percent, size, speed, tr, word } from "./words.js";

export const TABS = {
    segments: word("Segments"),
    files: word("Files"),
    peers: word("Connections"),
    log: word("Log"),
    details: word("Details"),
};
const LINES = 500; // of a log that are shown

/** The panel; `page` as for the list, `details` as Program keeps them. */
export function detailsPanel(page, job, details) {
    const tab = page.tab;
    const choose = (event) => {
        const names = Object.keys(TABS);
        const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
        if (!step) return;
        page.chooseTab(names[(names.indexOf(tab) + step + names.length) % names.length]);
        event.preventDefault();
        queueMicrotask(() => requestAnimationFrame(() => document.getElementById(`tab-${page.tab}`)?.focus()));
    };
    return html`<section class="details" aria-label=${tr("Details of the download")}>
        <header>
            <button class="icon back" aria-label=${tr("&Close")} title=${tr("&Close")} @click=${page.closeDetails}>
                ${sign("back")}${sign("close")}
            </button>
            <h2 title=${nameOf(job)}>${nameOf(job)}</h2>
        </header>
        <div class="tabs" role="tablist" @keydown=${choose}>
            ${Object.entries(TABS).map(
                ([name, title]) => html`<button
                    role="tab"
                    id="tab-${name}"
                    aria-selected=${tab === name}
                    aria-controls="tab-content"
                    tabindex=${tab === name ? 0 : -1}
                    @click=${() => page.chooseTab(name)}
                >
                    ${tr(title)}
                </button>`,
            )}
        </div>
        <div id="tab-content" class="content" role="tabpanel" aria-labelledby="tab-${tab}" tabindex="0">
            ${CONTENTS[tab](page, job, details)}
        </div>
    </section>`;
}

const CONTENTS = {
    segments(page, job, details) {
        const missing = details?.job?.segments ?? [];
        const why = problems(job);
        if (!(job.size > 0)) return html`${why}<p class="empty">${tr("The size of the file is not known yet.")}</p>`;
        const whole = job.state === "finished" ? [] : missing;
        if (!details?.job) return why;
        return html`${why}${segmentsPicture(job.size, whole.length || job.done > 0 ? whole : [allOf(job)], page.detailsWidth)}`;
    },

    files: (page, job, details) =>
        table(
            [word("Name"), word("Size"), word("Done")],
            (details?.files ?? []).map((file) => [
                file.path,
                size(Number(file.length) || null),
                Number(file.length) > 0 ? percent(Number(file.completedLength) / Number(file.length)) : "",
            ]),
        ),

    peers(page, job, details) {
        const peers = details?.peers ?? [];
        const connections = (details?.job?.peers ?? []).map((one) => [
            one.peer,
            one.end === null ? `${size(one.start)} –` : `${size(one.start)} – ${size(one.end)}`,
            one.trouble || tr(one.works ? "receives" : "waits"),
        ]);
        const speeds = (one) => [one.downloadSpeed, one.uploadSpeed].map((bytes) => speed(Number(bytes)));
        const rows = peers.map((one) => [`${one.ip}:${one.port}`, ...speeds(one)]);
        const hasServers = peers.length === 0 || connections.length > 0;
        return html`${peers.length > 0 ? table([word("Server"), word("Speed"), word("Upload")], rows) : ""}
        ${hasServers ? table([word("Server"), word("Range"), word("State")], connections) : ""}`;
    },

    log: (page, job, details) =>
        html`<ol class="log">
            ${(details?.log ?? []).slice(-LINES).map(
                (line) =>
                    html`<li class=${line.direction}>
                        <time>${line.time.slice(11, 19)}</time><span>${DIRECTIONS[line.direction]}</span><code>${line.text}</code>
                    </li>`,
            )}
        </ol>`,

    details(page, job, details) {
        const facts = [
            [word("Address"), job.address],
            [word("Folder"), job.folder],
            [word("State"), capital(stateText(job))],
            [word("Trouble"), job.error],
            [word("Size"), job.size === null ? "" : `${size(job.size)} (${number(job.size)} B)`],
            [word("Category"), page.categoryName(job.category)],
            [word("Speed limit"), job.limit > 0 ? speed(job.limit) : tr("No limit")],
            [word("Added"), moment(job.created)],
            [word("Finished"), moment(job.finished)],
            [word("Referer"), details?.job?.referer],
            [word("Agent"), details?.job?.agent],
            [word("Comment"), job.comment],
            [word("Identity"), job.gid],
        ];
        return html`<dl>
            ${facts.filter(([, text]) => text).map(([title, text]) => html`<dt>${tr(title)}</dt><dd>${text}</dd>`)}
        </dl>`;
    },
};

const DIRECTIONS = { note: "·", sent: "→", received: "←", error: "!" };
const allOf = (job) => ({ start: 0, end: job.size, active: false });
const problems = (job) => (job.error ? html`<p class="problem">${sign("failed")}<span>${job.error}</span></p>` : "");

function table(titles, rows) {
    if (rows.length === 0) return html`<p class="empty">–</p>`;
    return html`<table>
        <thead>
            <tr>
                ${titles.map((title) => html`<th scope="col">${tr(title)}</th>`)}
            </tr>
        </thead>
        <tbody>
            ${rows.map((cells) => html`<tr>${cells.map((text) => html`<td>${text}</td>`)}</tr>`)}
        </tbody>
    </table>`;
}
