// The questions of running downloads, one below the other, each with the answers that it takes.

import { html } from "./vendor/lit-html.js";
import { openDialog, troubleText } from "./dialogs.js";
import { nameOf } from "./jobs.js";
import { sign } from "./pictures.js";
import { duration, size, tr, trn, word } from "./words.js";

// The answers to each kind, as vantlow.answer reads them.
const ANSWERS = {
    "host-key": { yes: word("&Trust it"), no: word("&Do not trust it") },
    certificate: { yes: word("&Trust it"), no: word("&Do not trust it") },
    overwrite: { rename: word("&Keep both"), yes: word("&Replace it"), no: word("&Leave it") },
    "which-files": { none: word("Choose n&one") },
    credentials: {},
};

/** The bar that says that there are questions; nothing where there are none. */
export const questionBar = (program) =>
    program.questions.length === 0
        ? ""
        : html`<button class="bar question" @click=${() => openQuestions(program)}>
              ${sign("question")}<span>${tr("Open &questions")}: ${program.questions.length}</span>
          </button>`;

/** The dialog of the open questions; it closes with the last of them. */
export function openQuestions(program) {
    const dialog = openDialog({
        title: tr("Open &questions"),
        wide: true,
        content: () => program.questions.map((question) => oneQuestion(program, question, answer)),
    });
    const timer = setInterval(() => (program.questions.length > 0 ? dialog.draw() : dialog.close()), 1000);
    dialog.element.addEventListener("close", () => clearInterval(timer));
    async function answer(question, text) {
        try {
            await program.call("vantlow.answer", question.id, text);
            program.questions = program.questions.filter((one) => one.id !== question.id);
            dialog.trouble = "";
        } catch (error) {
            dialog.trouble = troubleText(error);
        }
        if (program.questions.length > 0) dialog.draw();
        else dialog.close();
    }
}

function oneQuestion(program, question, answer) {
    const job = program.jobs.get(question.job);
    return html`<section class="asked">
        ${job ? html`<h3>${nameOf(job)}</h3>` : ""}
        <p class="text">${(TEXTS[question.kind] ?? ((asked) => asked.text))(question)}</p>
        ${FORMS[question.kind]?.(question) ?? ""}
        <div class="answers">
            ${SUBMIT[question.kind]?.(question, answer) ?? ""}
            ${Object.entries(ANSWERS[question.kind] ?? {}).map(
                ([text, title]) => html`<button type="button" @click=${() => answer(question, text)}>${tr(title)}</button>`,
            )}
            <span class="hint">${duration(question.seconds)}</span>
        </div>
    </section>`;
}

const TEXTS = {
    "host-key": ({ server, fingerprint }) =>
        tr("The SSH server %1 is not known yet. Its key is\n%2\nIs it trusted from now on?", server, fingerprint),
    certificate: ({ server, fingerprint }) =>
        `${tr("The certificate of %1 is not trusted. Should this job go on all the same?", server)}\n${fingerprint}`,
    credentials: ({ server }) => tr("%1 wants a user name and a password.", server),
    overwrite: ({ path }) => tr("There is a file %1 already.", path),
    "which-files": ({ files }) =>
        trn("Which file of this list is meant? It names %1.", "Which of these %1 files are meant?", files.length),
};

// The numbers of the files that are ticked, from 1.
function chosenFiles(event) {
    const boxes = [...event.target.closest("section").querySelectorAll("[name=files]")];
    return boxes.flatMap((box, at) => (box.checked ? [at + 1] : [])).join(",") || "none";
}

const valueOf = (event, name) => event.target.closest("section").querySelector(`[name=${name}]`).value;

const FORMS = {
    credentials: () => html`<div class="pair">
            <label class="field"><span>${tr("User")}</span><input name="user" autocomplete="off" autocapitalize="off" /></label>
            <label class="field">
                <span>${tr("Password")}</span><input name="password" type="password" autocomplete="off" />
            </label>
        </div>`,
    "which-files": ({ files }) => html`<div class="choices">
        ${files.map(
            (file) => html`<label class="box">
                <input type="checkbox" name="files" .defaultChecked=${true} /><span>${file.name}</span>
                <small>${size(file.size)}</small>
            </label>`,
        )}
    </div>`,
};

const button = (title, act) => html`<button type="button" class="main" @click=${act}>${title}</button>`;

const SUBMIT = {
    credentials: (question, answer) =>
        button(tr("&Log in"), (event) => answer(question, `${valueOf(event, "user")}:${valueOf(event, "password")}`)),
    "which-files": (question, answer) => button(tr("&OK"), (event) => answer(question, chosenFiles(event))),
};
