// Drawings: the signs of buttons and states, the segments of a file, the speed of the last minutes.

import { html, svg } from "./vendor/lit-html.js";
import { percent, speed, tr } from "./words.js";

// Lines on a field of 24 by 24.
const SIGNS = {
    add: "M12 5v14M5 12h14",
    running: "M12 4v12m-5-5 5 5 5-5M6 20h12",
    waiting: "M12 3a9 9 0 1 0 0 18 9 9 0 0 0 0-18m0 4v5l3 2",
    stopped: "M8 6v12M16 6v12",
    finished: "M5 13l4.5 4.5L19 7",
    failed: "M12 4 2.5 20h19zM12 10v4m0 3v.1",
    start: "M8 5v14l11-7z",
    stop: "M7 7h10v10H7z",
    remove: "M5 7h14M10 7V4h4v3M7 7l1 13h8l1-13M10.5 11v5m3-5v5",
    up: "M12 19V5m-6 6 6-6 6 6",
    down: "M12 5v14m-6-6 6 6 6-6",
    search: "M11 4a7 7 0 1 0 0 14 7 7 0 0 0 0-14m5 12 5 5",
    options: "M4 7h9m4 0h3M15 5v4M4 12h3m4 0h9M9 10v4M4 17h11m4 0h1M17 15v4",
    schedule: "M12 3a9 9 0 1 0 0 18 9 9 0 0 0 0-18m0 4v5l3 2",
    edit: "M5 19l1-4L16 5l3 3L9 18zM14 7l3 3",
    limit: "M4 18a9 9 0 1 1 16 0M12 15l4-6",
    dark: "M20 14a8 8 0 1 1-9-11 6.5 6.5 0 0 0 9 11z",
    light: "M12 8a4 4 0 1 0 0 8 4 4 0 0 0 0-8M12 2v2m0 16v2M2 12h2m16 0h2M5 5l1.5 1.5m11 11L19 19M19 5l-1.5 1.5m-11 11L5 19",
    help: "M12 3a9 9 0 1 0 0 18 9 9 0 0 0 0-18m-2.5 7a2.5 2.5 0 1 1 3.5 2.3c-.7.4-1 .8-1 1.7m0 2.8v.1",
    menu: "M4 7h16M4 12h16M4 17h16",
    close: "M6 6l12 12M18 6 6 18",
    back: "M14 5l-7 7 7 7",
    details: "M5 5h14v14H5zM5 13h14",
    question: "M4 5h16v11H11l-4 4v-4H4z",
    category: "M3 6h6l2 2h10v11H3z",
    all: "M4 6h16M4 12h16M4 18h10",
    more: "M12 6v.1M12 12v.1M12 18v.1",
    sort: "M4 7h16M7 12h10M10 17h4",
};

/** A sign; it says nothing to a screen reader, so words stand beside it or on its button. */
export const sign = (name) =>
    html`<svg class="sign sign-${name}" viewBox="0 0 24 24" aria-hidden="true"><path d=${SIGNS[name]} /></svg>`;

const CELL = 12;
const ROWS = 6;

/**
 * The parts of a file. `missing`: [{start, end, active}] in bytes, ends excluded. A cell is there, missing, or being received;
 * the numbers stand below it in words.
 */
export function segmentsPicture(size, missing, width) {
    const columns = Math.max(Math.floor(width / CELL), 10);
    const cells = columns * ROWS;
    const kinds = cellKinds(size, missing, cells);
    const paths = { there: "", part: "", active: "", missing: "" };
    for (const [at, kind] of kinds.entries())
        paths[kind] += `M${(at % columns) * CELL} ${Math.floor(at / columns) * CELL}h10v10h-10z`;
    const lost = missing.reduce((sum, one) => sum + Math.min(one.end, size) - one.start, 0);
    const words = tr("%1 of the file is there.", percent((size - lost) / size));
    return html`<figure class="segments">
        <svg viewBox="0 0 ${columns * CELL} ${ROWS * CELL}" role="img" aria-label=${words}>
            ${Object.entries(paths).map(([kind, path]) => svg`<path class="cell ${kind}" d=${path} />`)}
        </svg>
        <figcaption>
            <span><i class="cell there"></i>${tr("there")}</span> <span><i class="cell part"></i>${tr("partly there")}</span>
            <span><i class="cell active"></i>${tr("receives")}</span> <span><i class="cell missing"></i>${tr("missing")}</span>
            <span class="sum">${words}</span>
        </figcaption>
    </figure>`;
}

/** The kind of each cell: "there", "part", "active" or "missing". */
export function cellKinds(size, missing, cells) {
    const lost = new Float64Array(cells);
    const active = new Uint8Array(cells);
    const each = size / cells;
    for (const { start, end, active: isActive } of missing) {
        const last = Math.min(end, size);
        for (let at = Math.floor(start / each); at < cells && at * each < last; ++at)
            lost[at] += Math.max(Math.min((at + 1) * each, last) - Math.max(at * each, start), 0);
        if (isActive && start < last) active[Math.min(Math.floor(start / each), cells - 1)] = 1;
    }
    return Array.from(lost, (bytes, at) => {
        if (active[at]) return "active";
        if (bytes < 0.5) return "there";
        return bytes > each - 0.5 ? "missing" : "part";
    });
}

const [WIDTH, HEIGHT] = [300, 70];

/** The speed of the last five minutes; `samples`: [{time, speed}], milliseconds and bytes a second. */
export function speedPicture(samples) {
    const now = samples.at(-1)?.time ?? 0;
    const most = Math.max(...samples.map((one) => one.speed), 1);
    const points = samples.map(({ time, speed: bytes }) => {
        const x = WIDTH - (now - time) / 1000;
        return `${x.toFixed(1)} ${(HEIGHT - (bytes / most) * (HEIGHT - 4)).toFixed(1)}`;
    });
    const first = WIDTH - (now - (samples[0]?.time ?? now)) / 1000;
    const area = `M${first} ${HEIGHT}L${points.join("L")}L${WIDTH} ${HEIGHT}z`;
    const peak = most > 1 ? speed(most) : "";
    const words = [tr("Speed"), speed(samples.at(-1)?.speed ?? 0), tr("5 minutes")].join(", ");
    return html`<figure class="history">
        <figcaption><span>${tr("Speed")}</span><span>${peak}</span></figcaption>
        <svg viewBox="0 0 ${WIDTH} ${HEIGHT}" preserveAspectRatio="none" role="img" aria-label=${words}>
            <path class="grid" d="M0 ${HEIGHT / 2}h${WIDTH}" />
            ${points.length > 1 ? svg`<path class="area" d=${area} /><path class="line" d="M${points.join("L")}" />` : ""}
        </svg>
        <figcaption><span>${tr("5 minutes")}</span><span>${tr("now")}</span></figcaption>
    </figure>`;
}
