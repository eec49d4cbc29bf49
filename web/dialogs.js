// Dialogs: the frame of every one, and those about jobs (new ones, removal, limits) and the keys.

import { html, nothing, render } from "./vendor/lit-html.js";
import { Refused } from "./connection.js";
import { nameOf } from "./jobs.js";
import { sign } from "./pictures.js";
import { bytesOf, bytesText, tr, trn } from "./words.js";

/**
 * Opens a dialog. `content(dialog)` gives its fields and is called again by dialog.draw(); `act(fields)` does what it is for,
 * with the fields by their names. It closes after that, or shows the sentence that `act` gives back or throws.
 */
export function openDialog({ title, content, ok, act, wide = false, danger = false }) {
    const element = document.createElement("dialog");
    const dialog = { element, trouble: "", isBusy: false };
    const submit = async (event) => {
        event.preventDefault();
        if (dialog.isBusy) return;
        dialog.isBusy = true;
        dialog.draw();
        try {
            dialog.trouble = (await act?.(new FormData(event.target))) ?? "";
        } catch (error) {
            dialog.trouble = troubleText(error);
        }
        dialog.isBusy = false;
        if (dialog.trouble) dialog.draw();
        else dialog.close();
    };
    dialog.close = () => element.close();
    dialog.draw = () =>
        render(
            html`<form @submit=${submit} novalidate>
                <header>
                    <h2 id="dialog-title">${title}</h2>
                    <button type="button" class="icon" aria-label=${tr("&Close")} @click=${dialog.close}>
                        ${sign("close")}
                    </button>
                </header>
                <div class="fields">${content(dialog)}</div>
                ${dialog.trouble ? problem(dialog.trouble) : ""}
                <footer>
                    <button type="button" @click=${dialog.close}>${ok ? tr("&Cancel") : tr("&Close")}</button>
                    ${ok ? html`<button class=${danger ? "danger" : "main"} ?disabled=${dialog.isBusy}>${ok}</button>` : nothing}
                </footer>
            </form>`,
            element,
        );
    element.className = wide ? "wide" : "";
    element.setAttribute("aria-labelledby", "dialog-title");
    element.addEventListener("close", () => element.remove());
    document.body.append(element);
    dialog.draw();
    element.showModal();
    const first = element.querySelector("[autofocus], .fields input, .fields select");
    (first ?? element.querySelector("footer button:last-child")).focus();
    return dialog;
}

const problem = (text) => html`<p class="problem" role="alert">${sign("failed")}<span>${text}</span></p>`;

/** The fault as a sentence. */
export const troubleText = (error) =>
    error instanceof Refused ? error.message : tr("Vantlow cannot be reached.");

export const field = (label, input, more = "") =>
    html`<label class="field ${more}"><span>${label.replace(/:$/, "")}</span>${input}</label>`;
export const input = (label, name, more = {}) =>
    field(label, html`<input name=${name} type=${more.type ?? "text"} placeholder=${more.hint ?? ""} .value=${more.value ?? ""}
        inputmode=${more.mode ?? "text"} autocomplete="off" autocapitalize="off" spellcheck="false" />`);
export const box = (label, name, isOn) =>
    html`<label class="box"><input type="checkbox" name=${name} .defaultChecked=${isOn} /><span>${label}</span></label>`;

const isMetalink = (name) => /\.(metalink|meta4)$/i.test(name);
export const isJobFile = (name) => isMetalink(name) || /\.torrent$/i.test(name);

/** New downloads; `given`: {text, files} that are there already. */
export function openNewDownload(program, given = {}) {
    let files = given.files ?? [];
    let text = given.text ?? "";
    const limit = (fields) => (fields.get("limit").trim() ? bytesOf(fields.get("limit")) : 0);
    openDialog({
        title: tr("New download"),
        ok: tr("&Download"),
        wide: true,
        content: (dialog) => html`
            ${field(tr("&Addresses, one in each line:"), html`<textarea name="addresses" rows="5" autofocus spellcheck="false"
                autocapitalize="off" .value=${text} @input=${(event) => (text = event.target.value)}></textarea>`)}
            <label class="files">
                <input type="file" multiple accept=".torrent,.metalink,.meta4" aria-label=${tr("Torrent or metalink files")}
                    @change=${(event) => {
                        files = [...files, ...event.target.files];
                        event.target.value = "";
                        dialog.draw();
                    }} />
                <span>${tr("Torrent or metalink files")}:
                    ${files.map((file) => file.name).join(", ") || tr("choose or drop them here")}</span>
            </label>
            <div class="pair">
                ${field(tr("&Category:"), html`<select name="category">
                    ${program.categories.map((one) => html`<option value=${one.id}>${program.categoryName(one.id)}</option>`)}
                </select>`)}
                ${input(tr("C&onnections:"), "connections", { mode: "numeric", hint: "5" })}
            </div>
            ${input(tr("&Folder:"), "folder")} ${input(tr("&Name:"), "name", { hint: tr("as the server names it") })}
            ${box(tr("&Start at once"), "start", true)}
            <details>
                <summary>${tr("&More")}</summary>
                ${input(tr("&Referer:"), "referer")}
                <div class="pair">
                    ${input(tr("&User:"), "user")} ${input(tr("Pass&word:"), "password", { type: "password" })}
                </div>
                <div class="pair">
                    ${input(tr("Speed &limit:"), "limit", { hint: tr("bytes a second: 500K, 2M") })}
                    ${input(tr("Coo&kies:"), "cookies")}
                </div>
            </details>
        `,
        async act(fields) {
            const addresses = text.split("\n").map((line) => line.trim()).filter(Boolean);
            if (addresses.length + files.length === 0) return tr("Enter or paste the addresses of files.");
            if (limit(fields) === null) return tr("\"%1\" cannot be understood.", fields.get("limit"));
            const options = optionsOf(fields, program.categories, limit(fields));
            const { left, trouble } = await addAll(program, addresses, files, options, fields.get("category"));
            text = left.filter((one) => typeof one === "string").join("\n");
            files = left.filter((one) => typeof one !== "string");
            return trouble;
        },
    });
}

// The options of JSON-RPC for what was entered; those that are empty are not sent.
function optionsOf(fields, categories, limit) {
    const category = categories.find((one) => one.id === fields.get("category"));
    const words = {
        dir: fields.get("folder").trim() || category?.folder,
        out: fields.get("name").trim(),
        referer: fields.get("referer").trim(),
        split: fields.get("connections").trim(),
        "http-user": fields.get("user"),
        "http-passwd": fields.get("password"),
        "max-download-limit": limit > 0 ? String(limit) : "",
        pause: fields.get("start") ? "" : "true",
        header: fields.get("cookies").trim() ? [`Cookie: ${fields.get("cookies").trim()}`] : "",
    };
    return Object.fromEntries(Object.entries(words).filter(([, value]) => value));
}

// Adds everything; what the program refuses is left, with the first sentence why.
async function addAll(program, addresses, files, options, category) {
    const calls = addresses.map((address) => ["aria2.addUri", [address], options]);
    for (const file of files) {
        const bytes = await base64Of(file);
        calls.push(isMetalink(file.name) ? ["aria2.addMetalink", bytes, options] : ["aria2.addTorrent", bytes, [], options]);
    }
    const answers = await program.all(calls);
    const isLeft = (at) => answers[at] instanceof Error;
    const left = [...addresses, ...files].filter((_, at) => isLeft(at));
    const gids = answers.filter((answer) => !(answer instanceof Error)).flat();
    const first = program.categories[0]?.id;
    if (category && category !== first && gids.length > 0) await program.call("vantlow.moveJobs", gids, category);
    return { left, trouble: answers.find((answer) => answer instanceof Error)?.message ?? "" };
}

async function base64Of(file) {
    const reader = new FileReader();
    reader.readAsDataURL(file);
    await new Promise((resolve, reject) => Object.assign(reader, { onload: resolve, onerror: reject }));
    return reader.result.slice(reader.result.indexOf(",") + 1);
}

/** Asks before jobs are removed; `done` is called after that. */
export function openRemoval(program, jobs, withFiles, done) {
    const text = jobs.length === 1
        ? tr("Remove \"%1\" from the list?", nameOf(jobs[0]))
        : trn("Remove %1 download from the list?", "Remove %1 downloads from the list?", jobs.length);
    openDialog({
        title: tr("Remove"),
        ok: tr("&Remove"),
        danger: true,
        content: () => html`<p>${text}</p>
            <label class="box"><input type="checkbox" name="files" .defaultChecked=${withFiles} />
                <span>${tr("Put the files into the bin, too")}</span></label>`,
        async act(fields) {
            await program.call("vantlow.remove", jobs.map((job) => job.gid), fields.get("files") ? "bin" : "keep");
            done();
        },
    });
}

/** The limits of everything, or of these jobs. */
export function openLimits(program, jobs = []) {
    const ofAll = jobs.length === 0;
    const whose = jobs.length === 1 ? nameOf(jobs[0]) : trn("%1 download", "%1 downloads", jobs.length);
    const now = ofAll ? program.limit : jobs[0].limit;
    openDialog({
        title: ofAll ? tr("&Limit speed") : `${tr("Speed limit")}: ${whose}`,
        ok: tr("&OK"),
        content: () => html`
            ${input(tr("Speed &limit:"), "limit", { value: now ? bytesText(now) : "", hint: tr("bytes a second: 500K, 2M") })}
            <p class="hint">${tr("Empty: no limit.")}</p>
            ${ofAll ? input(tr("Downloads at once:"), "atOnce", { value: program.atOnce ?? "", mode: "numeric" }) : nothing}
        `,
        async act(fields) {
            const limit = fields.get("limit").trim() ? bytesOf(fields.get("limit")) : 0;
            if (limit === null) return tr("\"%1\" cannot be understood.", fields.get("limit"));
            const calls = jobs.map((job) => ["aria2.changeOption", job.gid, { "max-download-limit": String(limit) }]);
            if (ofAll) calls.push(["vantlow.setLimits", { down: limit || null }]);
            const atOnce = fields.get("atOnce")?.trim();
            if (atOnce && atOnce !== program.atOnce)
                calls.push(["aria2.changeGlobalOption", { "max-concurrent-downloads": atOnce }]);
            return (await program.all(calls)).find((answer) => answer instanceof Error)?.message;
        },
    });
}

/** The category of these jobs. */
export function openCategory(program, jobs) {
    const [{ category: now }] = jobs;
    openDialog({
        title: jobs.length === 1 ? nameOf(jobs[0]) : trn("%1 download", "%1 downloads", jobs.length),
        ok: tr("&OK"),
        content: () => html`<label class="field"><span>${tr("&Category:")}</span>
            <select name="category">
                ${program.categories.map(
                    ({ id }) => html`<option value=${id} ?selected=${id === now}>${program.categoryName(id)}</option>`,
                )}
            </select></label>`,
        act: async (fields) => void (await program.call("vantlow.moveJobs", jobs.map((job) => job.gid), fields.get("category"))),
    });
}

/** A category's name, folder and rule; without `category` a new one below `parent`. */
export function openCategoryForm(program, category, parent) {
    const isFirst = category?.parent === null;
    const values = (fields) => ["name", "folder", "rule"].map((name) => fields.get(name)?.trim() ?? "");
    openDialog({
        title: category ? tr("Edit category") : tr("New category"),
        ok: tr("&OK"),
        content: () => html`
            ${input(tr("&Name:"), "name", { value: category?.name })} ${input(tr("&Folder:"), "folder", { value: category?.folder })}
            ${isFirst ? "" : html`${input(tr("&Rule:"), "rule", { value: category?.rule, hint: ".iso .tar.gz example.org" })}
            <p class="hint">${tr("New downloads without a category of their own are filed here where their names have one of these endings, or their addresses one of these servers.")}</p>`}
        `,
        async act(fields) {
            const [name, folder, rule] = values(fields);
            const id = category?.id ?? (await program.call("vantlow.addCategory", name, folder, parent));
            const calls = [];
            if (category && name !== category.name) calls.push(["vantlow.renameCategory", id, name]);
            if (category && folder !== category.folder) calls.push(["vantlow.setCategoryFolder", id, folder]);
            if (!isFirst && rule !== (category?.rule ?? "")) calls.push(["vantlow.setCategoryRule", id, rule]);
            return (await program.all(calls)).find((answer) => answer instanceof Error)?.message;
        },
    });
}

/** The keys of the page. */
export function openHelp() {
    const keys = [
        ["/", tr("&Find")],
        ["n", tr("New download")],
        ["↑ ↓", tr("Choose a download")],
        [tr("Space"), tr("Select")],
        ["Ctrl+A", tr("S&elect all")],
        [tr("Enter"), tr("&Details")],
        ["s", tr("&Start")],
        ["p", tr("S&top")],
        ["Alt+↑ Alt+↓", tr("Earlier or later in the order of waiting downloads")],
        [tr("Del"), tr("&Remove...")],
        [tr("Shift+Del"), tr("Remove with f&iles...")],
        ["Esc", tr("&Close")],
    ];
    openDialog({
        title: tr("Keys"),
        content: () => html`<dl class="keys">${keys.map(([key, text]) => html`<dt><kbd>${key}</kbd></dt><dd>${text}</dd>`)}</dl>`,
    });
}
