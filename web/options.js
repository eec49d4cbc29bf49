// The options: those of this page, and every setting of the program with its bounds.

import { html } from "./vendor/lit-html.js";
import { openDialog, troubleText } from "./dialogs.js";
import { dayBoxes } from "./schedule.js";
import { availableLanguages, capital, chooseLanguage, chosenLanguage, tr, trData, word } from "./words.js";

const THEME = "vantlow.theme"; // in localStorage: "light", "dark"; without it, the system's

export const theme = () => localStorage.getItem(THEME) ?? "";

/** Shows the page light or dark; empty: as the system does. */
export function setTheme(name) {
    if (name) localStorage.setItem(THEME, name);
    else localStorage.removeItem(THEME);
    document.documentElement.dataset.theme = name;
}

export const isDark = () => (theme() ? theme() === "dark" : matchMedia("(prefers-color-scheme: dark)").matches);

// The titles of the program's sections, as the window has them.
const TITLES = {
    Settings: word("General"),
    Others: word("General"),
    Window: word("General"),
    Download: word("Downloads"),
    Connection: word("Connections"),
    Transfer: word("FTP"),
    Schedule: word("Schedule"),
    Torrent: word("BitTorrent"),
    Monitor: word("Files and links"),
    "Dial Up": word("Dial-up"),
    RPC: word("Control from elsewhere"),
};
const titleOf = ({ name }) => TITLES[name.split("/")[0]] ?? word("Other");

/** Opens the options; `restart` shows the page anew in another language. */
export async function openOptions(program, restart) {
    let settings = [];
    let words = "";
    const languages = await availableLanguages();
    const dialog = openDialog({ title: tr("Options"), wide: true, content });
    await read();

    async function read() {
        try {
            settings = await program.call("vantlow.settings");
            dialog.trouble = "";
        } catch (error) {
            dialog.trouble = troubleText(error);
        }
        dialog.draw();
    }

    async function change(...call) {
        try {
            await program.call(...call);
            await read();
        } catch (error) {
            dialog.trouble = `${call[1]}: ${troubleText(error)}`;
            dialog.draw();
        }
    }

    function content() {
        const wanted = words.toLowerCase();
        const found = settings.filter(({ name, meaning }) => `${name} ${trData(meaning)}`.toLowerCase().includes(wanted));
        const titles = [...new Set([...Object.values(TITLES), ...found.map(titleOf)])];
        return html`
            ${words ? "" : pageOptions()}
            <label class="field">
                <span>${tr("Search the options")}</span>
                <input type="search" .value=${words} @input=${(event) => {
                    words = event.target.value;
                    dialog.draw();
                }} />
            </label>
            ${found.length === 0 && settings.length > 0 ? html`<p class="empty">${tr("No option holds these words.")}</p>` : ""}
            ${titles.map((title) => group(title, found.filter((one) => titleOf(one) === title)))}
        `;
    }

    function group(title, its) {
        return its.length === 0 ? "" : html`<h3>${tr(title)}</h3>${its.map(setting)}`;
    }

    function setting(one) {
        if (one.name === "Schedule/Week") return weekPlan(one);
        const { name, value, default: standard, isSet, isNumber, smallest, largest, meaning } = one;
        const bounds = smallest !== null && largest !== null ? tr("from %1 to %2", smallest, largest) : "";
        const hints = [name, bounds, tr("Default: %1", standard || tr("empty"))].filter(Boolean).join(" · ");
        return html`<label class="field setting">
            <span>${capital(trData(meaning))}</span>
            <span class="value">
                <input .value=${value} inputmode=${isNumber ? "numeric" : "text"} autocomplete="off" spellcheck="false"
                    @change=${(event) => change("vantlow.setSetting", name, event.target.value)} />
                ${isSet ? html`<button type="button" title=${tr("Go back to the default")}
                    @click=${() => change("vantlow.unsetSetting", name)}>${tr("Default")}</button>` : ""}
            </span>
            <small>${hints}</small>
        </label>`;
    }

    // The program keeps the days as a sum of bits, from Sunday on.
    function weekPlan({ name, value }) {
        const days = ["sun", "mon", "tue", "wed", "thu", "fri", "sat"];
        const now = days.filter((_, bit) => Number(value) & (1 << bit)).join(",");
        const sum = (names) => names.split(",").filter(Boolean).reduce((all, day) => all + (1 << days.indexOf(day)), 0);
        const title = capital(tr("the days on which downloads that start by schedule run"));
        return html`<div class="field setting" role="group" aria-label=${title}>
            <span>${title}</span>
            ${dayBoxes(now, (names) => change("vantlow.setSetting", name, String(sum(names))))}
            <small>${name} · ${tr("On no day: there is no week plan")}</small>
        </div>`;
    }

    function pageOptions() {
        const choice = (value, now, title) => html`<option value=${value} ?selected=${value === now}>${title}</option>`;
        return html`<h3>${tr("This page")}</h3>
            <div class="pair">
                <label class="field"><span>${tr("Language")}</span>
                    <select @change=${async (event) => {
                        chooseLanguage(event.target.value);
                        dialog.close();
                        await restart();
                    }}>
                        ${choice("", chosenLanguage(), tr("as the browser"))}
                        ${languages.map((tag) => choice(tag, chosenLanguage(), ownName(tag)))}
                    </select></label>
                <label class="field"><span>${tr("Colours")}</span>
                    <select @change=${(event) => {
                        setTheme(event.target.value);
                        program.refresh();
                    }}>
                        ${choice("", theme(), tr("as the system"))} ${choice("light", theme(), tr("light"))}
                        ${choice("dark", theme(), tr("dark"))}
                    </select></label>
            </div>
            <button type="button" @click=${() => program.logOut()}>${tr("Forget the secret")}</button>`;
    }
}

const ownName = (tag) => new Intl.DisplayNames([tag], { type: "language" }).of(tag);
