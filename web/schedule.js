// When downloads start and stop by the clock: the dialog about jobs, and the boxes for the days of a week.

import { html } from "./vendor/lit-html.js";
import { box, input, openDialog } from "./dialogs.js";
import { nameOf } from "./jobs.js";
import { tr, trn, weekdays } from "./words.js";

/** Boxes for the days; `now`: their names ("mon,tue"), `changed` hears the names of those that are checked. */
export const dayBoxes = (now, changed) => {
    const checked = new Set(now.split(",").filter(Boolean));
    return html`<span class="days">
        ${weekdays().map(({ name, title }) => html`<label class="box">
            <input type="checkbox" .checked=${checked.has(name)} @change=${(event) => {
                if (event.target.checked) checked.add(name);
                else checked.delete(name);
                changed([...checked].join(","));
            }} /><span>${title}</span>
        </label>`)}
    </span>`;
};

/** The times of these jobs; those of the first one stand there at first. */
export async function openSchedule(program, jobs) {
    const { plan, jobs: [its] } = await program.call("vantlow.schedule", [jobs[0].gid]);
    let { days } = its;
    openDialog({
        title: jobs.length === 1 ? nameOf(jobs[0]) : trn("%1 download", "%1 downloads", jobs.length),
        ok: tr("&OK"),
        content: () => html`
            ${input(tr("Beg&in at:"), "start", { value: its.start, hint: tr("22:00, or 2026-11-27 22:00") })}
            ${input(tr("S&top at:"), "stop", { value: its.stop })}
            <div class="field" role="group" aria-label=${tr("Every week on:")}>
                <span>${tr("Every week on:").replace(/[:：]$/, "")}</span>${dayBoxes(days, (names) => (days = names))}
            </div>
            ${plan || its.plan ? box(tr("Run &by the week plan"), "plan", its.plan) : ""}
        `,
        async act(fields) {
            const times = fields.get("plan")
                ? { plan: true }
                : { start: fields.get("start").trim(), stop: fields.get("stop").trim(), days, every: days ? 0 : its.every };
            await program.call("vantlow.setSchedule", jobs.map((job) => job.gid), times);
        },
    });
}
