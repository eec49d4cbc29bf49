// What the extension's pages share: their words, and questions to the worker.
import { api, message } from '../api.js';

/** Puts the words of the person's language into everything that names some: data-words, data-hint. */
export function localize() {
  document.documentElement.lang = api.i18n.getUILanguage();
  for (const element of document.querySelectorAll('[data-words]')) element.textContent = message(element.dataset.words);
  for (const element of document.querySelectorAll('[data-hint]')) element.placeholder = message(element.dataset.hint);
}

/** Asks the worker; rejects where it could not do it. */
export async function askWorker(request) {
  const answer = await api.runtime.sendMessage(request);
  if (answer?.error) throw new Error(answer.error);
  return answer;
}

export function sizeText(size) {
  if (size < 0) return '';
  const power = Math.min(Math.floor(Math.log2(Math.max(size, 1)) / 10), 4);
  const number = new Intl.NumberFormat(api.i18n.getUILanguage(), { maximumFractionDigits: 1 }).format(size / 1024 ** power);
  return `${number} ${['B', 'KiB', 'MiB', 'GiB', 'TiB'][power]}`;
}

/** The last part of an address's path, to be read; the address where it has none. */
export function lastPart(address) {
  const part = new URL(address).pathname.split('/').pop();
  try {
    return decodeURIComponent(part) || address;
  } catch {
    return part; // of another character set
  }
}

/** An element with a text and properties. */
export function make(tag, text, properties = {}) {
  return Object.assign(document.createElement(tag), { textContent: text }, properties);
}
