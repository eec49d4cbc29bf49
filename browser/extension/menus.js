// The entries of the context menu, and the chooser for the links of a page.
import { api, asksForNames, message } from './api.js';
import { handOver } from './handover.js';
import { storeOf } from './requests.js';
import { isFetchable, tidyLinks } from './rules.js';

const entries = [
  { id: 'link', contexts: ['link'] },
  { id: 'media', contexts: ['image', 'video', 'audio'] },
  { id: 'selection', contexts: ['selection'] },
  { id: 'page', contexts: ['page', 'frame'] },
];

function makeMenus() {
  api.contextMenus.removeAll().then(() => {
    for (const { id, contexts } of entries) api.contextMenus.create({ id, contexts, title: message(`menu_${id}`) });
  });
}

// Runs in the page: it may use nothing from outside.
function collectLinks(selectedOnly) {
  const selection = getSelection();
  const isWanted = (link) => !selectedOnly || (selection.rangeCount > 0 && selection.containsNode(link, true));
  const links = [...document.querySelectorAll('a[href], area[href]')].filter(isWanted);
  return links.map((link) => ({ address: link.href, text: link.textContent || link.title || link.alt || '' }));
}

async function linksOf(tab, frameId, selectedOnly) {
  const target = { tabId: tab.id, ...(frameId ? { frameIds: [frameId] } : {}) };
  const frames = await api.scripting.executeScript({ target, func: collectLinks, args: [selectedOnly] });
  return tidyLinks(frames.flatMap(({ result }) => result ?? []));
}

/** What the downloads of a tab have in common: the store of its cookies, and the page that they were found on. */
export const surroundingsOf = (tab) => ({
  referer: tab?.url,
  storeId: storeOf(tab ?? {}),
});

/** Hands links over; the browser fetches by itself what the program does not take. */
export async function fetchLinks(addresses, tab) {
  const links = addresses.filter(isFetchable);
  const taken = await handOver(links.map((address) => ({ address, ...surroundingsOf(tab) })));
  const left = links.filter((address, i) => !taken[i] && /^https?:/i.test(address));
  // Chromium would fetch a private window's link with the other windows' cookies, and list it there.
  if (tab?.incognito && asksForNames) return;
  const window = asksForNames ? {} : { incognito: tab?.incognito ?? false, cookieStoreId: tab?.cookieStoreId };
  await Promise.allSettled(left.map((url) => api.downloads.download({ url, ...window })));
}

/** Opens the chooser with the links of a page. */
export async function chooseLinks(tab, frameId) {
  const links = await linksOf(tab, frameId, false);
  const key = `choice${Date.now()}`;
  await api.storage.session.set({ [key]: { links, surroundings: surroundingsOf(tab), title: tab.title ?? '' } });
  await api.tabs.create({ url: api.runtime.getURL(`pages/chooser.html?${key}`), index: tab.index + 1 });
}

async function onClicked(info, tab) {
  if (info.menuItemId === 'link') await fetchLinks([info.linkUrl], tab);
  if (info.menuItemId === 'media') await fetchLinks([info.srcUrl ?? ''], tab);
  if (info.menuItemId === 'page') await chooseLinks(tab, info.frameId);
  if (info.menuItemId !== 'selection') return;
  const links = await linksOf(tab, info.frameId, true);
  await fetchLinks(links.map(({ address }) => address), tab);
}

/** Begins to watch; to be called while the worker starts. */
export function watchMenus() {
  api.runtime.onInstalled.addListener(makeMenus);
  api.contextMenus.onClicked.addListener(onClicked);
}
