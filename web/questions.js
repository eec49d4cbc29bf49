// The questions of running downloads, one below the other, each with the answers that it takes.

import { html } from "./vendor/lit-html.js";
import { openDialog, troubleText } from "./dialogs.js";
import { nameOf } from "./list.js";
import { sign } from "./pictures.js";
import { duration, tr, word } from "./words.js";

// The answers to each kind, as vantlow.answer reads them.
const ANSWERS = {
    "host-key": { yes: word("&Trust it"), no: word("&Do not trust it") },
    certificate: { yes: word("&Trust it"), no: word("&Do not trust it") },
    overwrite: { rename: word("&Keep both"), yes: word("&Replace it"), no: word("&Leave it") },
    "which-files": { all: word("Choose &all"), none: word("Choose n&one") },
    credentials: {},
};

/** The bar that says that there are questions; nothing where there are none. */
export const questionBar = (page, program) =>
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
        <p class="text">${question.text}</p>
        ${FORMS[question.kind]?.() ?? ""}
        <div class="answers">
            ${SUBMIT[question.kind]?.(question, answer) ?? ""}
            ${Object.entries(ANSWERS[question.kind] ?? {}).map(
                ([text, title]) => html`<button type="button" @click=${() => answer(question, text)}>${tr(title)}</button>`,
            )}
            <span class="hint">${duration(question.seconds)}</span>
        </div>
    </section>`;
}

const valueOf = (event, name) => event.target.closest("section").querySelector(`[name=${name}]`).value;

const FORMS = {
    credentials: () => html`<div class="pair">
            <label class="field"><span>${tr("User")}</span><input name="user" autocomplete="off" autocapitalize="off" /></label>
            <label class="field"><span>${tr("Password")}</span><input name="password" type="password" autocomplete="off" /></label>
        </div>`,
    "which-files": () => html`<label class="field">
            <span>${tr("Numbers of the files: 1,3-5")}</span><input name="files" autocomplete="off" />
        </label>`,
};

const button = (title, act) => html`<button type="button" class="main" @click=${act}>${title}</button>`;

const SUBMIT = {
    credentials: (question, answer) =>
        button(tr("&Log in"), (event) => answer(question, `${valueOf(event, "user")}:${valueOf(event, "password")}`)),
    "which-files": (question, answer) => button(tr("&OK"), (event) => answer(question, valueOf(event, "files"))),
};
