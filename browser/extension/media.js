// Films, sound and playlists that the pages load: a list for each tab, until it goes to another page.
import { api } from './api.js';
import { mediaKind, sizeOf } from './rules.js';

const most = 50; // of one tab
const keyOf = (tabId) => `media${tabId}`;
let order = Promise.resolve(); // one change after the other

function change(tabId, next) {
  order = order
    .then(async () => {
      const key = keyOf(tabId);
      const list = next((await api.storage.session.get(key))[key] ?? []);
      if (list.length > 0) await api.storage.session.set({ [key]: list });
      else await api.storage.session.remove(key);
    })
    .catch(() => {}); // a full store loses a line of the list
}

export async function mediaOf(tabId) {
  await order;
  return (await api.storage.session.get(keyOf(tabId)))[keyOf(tabId)] ?? [];
}

function onResponseStarted(details) {
  if (details.tabId < 0) return;
  const kind = mediaKind(details.url, details.responseHeaders);
  if (!kind) return;
  const one = { address: details.url, kind, size: sizeOf(details.responseHeaders) };
  change(details.tabId, (list) =>
    list.some(({ address }) => address === one.address) ? list : [...list, one].slice(-most));
}

/** Begins to watch; to be called while the worker starts. */
export function watchMedia() {
  const filter = { urls: ['http://*/*', 'https://*/*'], types: ['media', 'xmlhttprequest', 'object', 'other'] };
  api.webRequest.onResponseStarted.addListener(onResponseStarted, filter, ['responseHeaders']);
  // A download is a request of the page's own kind, too: only a new address is a new page.
  api.tabs.onUpdated.addListener((tabId, { url }) => {
    if (url) change(tabId, () => []);
  });
  api.tabs.onRemoved.addListener((tabId) => change(tabId, () => []));
}
