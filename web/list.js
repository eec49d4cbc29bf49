// The list of jobs: only the rows that can be seen stand in the document.

import { html } from "./vendor/lit-html.js";
import { COLUMNS, nameOf, share } from "./jobs.js";
import { sign } from "./pictures.js";
import { capital, duration, moment, percent, size, speed, tr, trData, word } from "./words.js";

const SPARE = 6; // rows above and below that are there already when one scrolls
const TITLES = {
    name: word("Name"),
    size: word("Size"),
    done: word("Done"),
    speed: word("Speed"),
    left: word("Time left"),
    state: word("State"),
    category: word("Category"),
    added: word("Added"),
};

export const narrow = matchMedia("(max-width: 760px)");
export const rowHeight = () => (narrow.matches ? 74 : 36);
export const columnTitle = (column) => tr(TITLES[column]);

/** The state as words: "waiting, 3rd", and why nothing moves. */
export function stateText(job) {
    if (job.state === "waiting" && job.place) return `${tr("waiting")} (${job.place})`;
    return job.waits ? trData(job.waits) : tr(job.state);
}

/**
 * The list. `page` has the state (app.js): jobs in order, the cursor and what is selected, how far it is scrolled; and what
 * becomes of clicks.
 */
export function jobList(page) {
    const height = rowHeight();
    const { jobs, scrolled, seen } = page;
    const first = Math.max(Math.floor(scrolled / height) - SPARE, 0);
    const last = Math.min(Math.ceil((scrolled + seen) / height) + SPARE, jobs.length);
    const at = jobs.findIndex((job) => job.gid === page.cursor);
    return html`<div
        id="grid"
        class="jobs"
        role="grid"
        tabindex="0"
        aria-label=${tr("Downloads")}
        aria-multiselectable="true"
        aria-rowcount=${jobs.length}
        aria-activedescendant=${at >= first && at < last ? `job-${page.cursor}` : ""}
        @keydown=${page.listKey}
    >
        <div class="headings" role="row">
            <span role="columnheader" aria-label=${tr("Select")}></span>
            ${Object.keys(COLUMNS).map((column) => heading(page, column))}
        </div>
        <div id="list" class="list" role="rowgroup" @scroll=${(event) => page.scroll(event.target.scrollTop)}>
            <div .style=${`height: ${first * height}px`}></div>
            ${jobs.slice(first, last).map((job, index) => row(page, job, first + index))}
            <div .style=${`height: ${(jobs.length - last) * height}px`}></div>
            ${jobs.length === 0 ? html`<p class="empty">${page.emptyText}</p>` : ""}
        </div>
    </div>`;
}

function heading(page, column) {
    const { sort, falls } = page.view;
    const order = sort !== column ? "none" : falls ? "descending" : "ascending";
    const arrow = sort !== column ? "" : falls ? " ↓" : " ↑";
    return html`<span role="columnheader" class=${column} aria-sort=${order}>
        <button @click=${() => page.sortBy(column)}>${columnTitle(column)}${arrow}</button>
    </span>`;
}

function row(page, job, at) {
    const isSelected = page.selected.has(job.gid);
    const isCursor = page.cursor === job.gid;
    const parts = { page, job, isSelected };
    return html`<div
        id="job-${job.gid}"
        role="row"
        class="row ${job.state} ${isCursor ? "cursor" : ""}"
        aria-rowindex=${at + 1}
        aria-selected=${isSelected}
        @click=${(event) => page.clickRow(job, event)}
        @dblclick=${() => page.openDetails(job)}
    >
        ${narrow.matches ? card(parts) : cells(parts)}
    </div>`;
}

const check = ({ page, job, isSelected }) =>
    html`<span role="gridcell" class="check"
        ><input
            type="checkbox"
            tabindex="-1"
            .checked=${isSelected}
            aria-label=${`${tr("Select")}: ${nameOf(job)}`}
            @click=${(event) => page.toggle(job, event)}
            @dblclick=${(event) => event.stopPropagation()}
    /></span>`;

const bar = (job) => html`<progress max="1" .value=${share(job)} aria-label=${tr("Done")}></progress>`;
const shareText = (job) => (job.size > 0 || job.state === "finished" ? percent(share(job)) : size(job.done || null));
const problem = (job) => (job.state === "failed" && job.error ? job.error : "");

function cells({ page, job, isSelected }) {
    const isMoving = job.state === "running";
    const cell = (column, content, title = "") => html`<span role="gridcell" class=${column} title=${title}>${content}</span>`;
    return html`
        ${check({ page, job, isSelected })} ${cell("name", nameOf(job), `${nameOf(job)}\n${job.address}`)}
        ${cell("size", size(job.size))} ${cell("done", html`${bar(job)}<b>${shareText(job)}</b>`)}
        ${cell("speed", isMoving ? speed(job.speed) : "")} ${cell("left", isMoving ? duration(job.secondsLeft) : "")}
        ${cell("state", html`${sign(job.state)}<b>${stateText(job)}</b>`, problem(job) || stateText(job))}
        ${cell("category", page.categoryName(job.category))} ${cell("added", moment(job.created))}
    `;
}

function card({ page, job, isSelected }) {
    const isMoving = job.state === "running";
    const facts = [shareText(job), isMoving ? speed(job.speed) : "", isMoving ? duration(job.secondsLeft) : problem(job)];
    return html`
        ${check({ page, job, isSelected })}
        <span role="gridcell" class="card">
            <span class="title"><span class="name">${nameOf(job)}</span><span class="size">${size(job.size)}</span></span>
            ${bar(job)}
            <span class="facts">
                <span class="state">${sign(job.state)}<b>${capital(stateText(job))}</b></span>
                ${facts.filter(Boolean).map((fact) => html`<span>${fact}</span>`)}
            </span>
        </span>
    `;
}
