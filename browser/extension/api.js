// The browser's interface, under the one name that both families' promises answer to.
import { defaultSettings } from './rules.js';

export const api = globalThis.browser ?? globalThis.chrome;

/** Chromium asks for the name of a download before it saves it; Firefox has to be stopped before it begins one. */
export const asksForNames = Boolean(api.downloads?.onDeterminingFilename);

export async function loadSettings() {
  return { ...defaultSettings, ...(await api.storage.local.get(Object.keys(defaultSettings))) };
}

export const message = (name, ...values) => api.i18n.getMessage(name, values.map(String));
