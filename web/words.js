// The words of the page in the reader's language, and numbers as that language writes them. English is built in; the others
// come from the catalogues that the window uses (languages/*.lng), under the same English texts.

const KEY = "vantlow.language"; // in localStorage: what was chosen here; without it, the browser's languages count

let language = "en";
let plurals = "one-other";
let texts = new Map();

/** Loads the catalogue for the chosen language; English where there is none or it cannot be had. */
export async function loadWords() {
    const there = await availableLanguages();
    language = bestOf(there, [localStorage.getItem(KEY), ...navigator.languages]);
    texts = new Map();
    plurals = "one-other";
    if (language !== "en") read(await textOf(`languages/${language}.lng`));
    document.documentElement.lang = language;
}

/** The languages that the page can speak, as BCP 47 tags, English first. */
export async function availableLanguages() {
    const names = (await textOf("languages/index.txt")).split("\n").filter(Boolean);
    return ["en", ...names];
}

export function chooseLanguage(tag) {
    if (tag) localStorage.setItem(KEY, tag);
    else localStorage.removeItem(KEY);
}

export const chosenLanguage = () => localStorage.getItem(KEY) ?? "";

async function textOf(path) {
    try {
        const answer = await fetch(path);
        return answer.ok ? await answer.text() : "";
    } catch {
        return "";
    }
}

function bestOf(there, wanted) {
    for (const tag of wanted.filter(Boolean)) {
        const same = there.find((one) => one.toLowerCase() === tag.toLowerCase());
        const [first] = tag.toLowerCase().split("-");
        const found = same ?? there.find((one) => one.toLowerCase().split("-")[0] === first);
        if (found) return found;
    }
    return "en";
}

// Paragraphs of two lines: the English text, then the translated one; "|" stands between the forms of a text that counts.
function read(catalogue) {
    const lines = catalogue.replaceAll("\r", "").split("\n").filter((line) => !line.startsWith("#")).join("\n");
    for (const [at, paragraph] of lines.split(/\n{2,}/).entries()) {
        const [english, translated] = paragraph.trim().split("\n");
        if (at === 0) plurals = /^plurals: (.*)$/m.exec(paragraph)?.[1] ?? plurals;
        else if (translated !== undefined) texts.set(formsOf(english).at(-1), formsOf(translated));
    }
}

const formsOf = (line) => line.split(/(?<!\\)\|/).map((form) => form.replaceAll("\\n", "\n").replaceAll("\\|", "|"));

function formFor(count) {
    if (plurals === "other") return 0;
    if (plurals === "zero-one-other") return count < 2 ? 0 : 1;
    if (plurals !== "slavic") return count === 1 ? 0 : 1;
    if (count % 10 === 1 && count % 100 !== 11) return 0;
    return count % 10 >= 2 && count % 10 <= 4 && (count % 100 < 12 || count % 100 > 14) ? 1 : 2;
}

// "&" marks the mnemonics of the window: "S&top", "停止(&T)".
const plain = (text) => text.replace(/\(&.\)/, "").replace(/&(?=\S)/, "");
const fill = (text, values) => text.replace(/%([1-9])/g, (place, digit) => values[digit - 1] ?? place);

/** The text in the reader's language, with "%1" to "%9" replaced by the values. */
export const tr = (english, ...values) => fill(plain(texts.get(english)?.[0] ?? english), values);

/** A text of the program, as a setting's meaning or the name of a first category, which the catalogue may have. */
export const trData = (english) => texts.get(english)?.[0] ?? english;

/** Marks a text of a table that tr() is given later. */
export const word = (english) => english;

/** The text for a count, which takes the place of "%1". */
export function trn(one, many, count) {
    const forms = texts.get(many);
    const form = forms ? (forms[formFor(count)] ?? forms.at(-1)) : count === 1 ? one : many;
    return fill(plain(form), [number(count)]);
}

/** The days of a week from Monday on: how the program names them, and how the reader does. */
export function weekdays() {
    const title = new Intl.DateTimeFormat(language, { weekday: "short", timeZone: "UTC" });
    const monday = Date.UTC(2024, 0, 1);
    return ["mon", "tue", "wed", "thu", "fri", "sat", "sun"].map((name, day) => ({
        name,
        title: title.format(monday + day * 86400000),
    }));
}

/** The text as a title: its first letter is a capital. */
export const capital = (text) => text.slice(0, 1).toLocaleUpperCase(language) + text.slice(1);

export const number = (value, digits = 0) =>
    new Intl.NumberFormat(language, { minimumFractionDigits: digits, maximumFractionDigits: digits }).format(value);

const UNITS = ["B", "KiB", "MiB", "GiB", "TiB", "PiB"];

/** Bytes in powers of 1024; nothing for null. */
export function size(bytes) {
    if (bytes === null || bytes === undefined) return "";
    const power = Math.min(Math.max(Math.floor(Math.log2(Math.max(bytes, 1)) / 10), 0), UNITS.length - 1);
    return `${number(bytes / 1024 ** power, power === 0 ? 0 : 1)} ${UNITS[power]}`;
}

export const speed = (bytes) => `${size(bytes)}/s`;

export const percent = (share) => `${number(Math.floor(share * 1000) / 10, share > 0 && share < 1 ? 1 : 0)} %`;

/** Seconds as "4:05" or "1:04:05"; nothing for null. */
export function duration(seconds) {
    if (seconds === null || seconds === undefined) return "";
    const two = (value) => String(value).padStart(2, "0");
    const [hours, minutes] = [Math.floor(seconds / 3600), Math.floor(seconds / 60) % 60];
    return hours > 0 ? `${hours}:${two(minutes)}:${two(seconds % 60)}` : `${minutes}:${two(seconds % 60)}`;
}

/** A moment of ISO 8601 in the reader's time zone; nothing for null. */
export const moment = (iso) =>
    iso ? new Intl.DateTimeFormat(language, { dateStyle: "short", timeStyle: "short" }).format(new Date(iso)) : "";

/** The order of two texts for a reader. */
export const compare = (left, right) => collator().compare(left, right);

let collators = {};
const collator = () => (collators[language] ??= new Intl.Collator(language, { numeric: true, sensitivity: "base" }));

/** Bytes of "500K", "2M", "1.5 GiB"; null where the text is none. */
export function bytesOf(text) {
    const match = /^\s*(\d+(?:[.,]\d+)?)\s*([KMGT]?)(?:i?B)?(?:\/s)?\s*$/i.exec(text);
    if (!match) return null;
    const power = match[2] ? "KMGT".indexOf(match[2].toUpperCase()) + 1 : 0;
    return Math.round(Number(match[1].replace(",", ".")) * 1024 ** power);
}

/** Bytes as bytesOf() reads them, exactly. */
export function bytesText(bytes) {
    const power = [3, 2, 1].find((one) => bytes > 0 && bytes % 1024 ** one === 0) ?? 0;
    return `${bytes / 1024 ** power}${["", "K", "M", "G"][power]}`;
}
