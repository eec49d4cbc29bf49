// The browser's own downloads, taken over where the rules say so. Whatever goes wrong, the browser goes on by itself.
import { api, asksForNames, loadSettings } from './api.js';
import { getNext, handOver, setNext } from './handover.js';
import { firstAddress, formTo, methodOf, storeOf } from './requests.js';
import { isSaved, sizeOf, takes } from './rules.js';

const leftToBrowser = new Set(); // addresses, until their download begins (Firefox)

/** Decides about a download, and hands it over. True when the program has it. */
async function takeOver(download) {
  const [settings, next, method] = await Promise.all([loadSettings(), getNext(), methodOf(download.address)]);
  if (next) await setNext(undefined);
  const whole = { ...download, method, form: method === 'POST' ? formTo(download.address) : null };
  if (!takes(whole, settings, next)) return false;
  const [taken] = await handOver([whole]);
  return taken;
}

const nameOf = (path) => path?.split(/[\\/]/).pop() ?? '';

function ofItem(item) {
  return {
    address: item.finalUrl || item.url,
    first: item.url,
    referer: item.referrer,
    name: nameOf(item.filename),
    size: item.totalBytes > 0 ? item.totalBytes : -1,
    storeId: storeOf(item),
  };
}

// Chromium: a download waits for its name until the program has answered.
function onDeterminingFilename(item, suggest) {
  if (item.byExtensionId === api.runtime.id || item.state !== 'in_progress') return false;
  takeOver(ofItem(item))
    .then(async (taken) => {
      if (!taken) return suggest();
      await api.downloads.cancel(item.id);
      await api.downloads.erase({ id: item.id });
    })
    .catch(() => suggest());
  return true;
}

// Firefox: the answer waits; a download that the program has never begins.
async function onHeadersReceived(details) {
  if (!['GET', 'POST'].includes(details.method) || !isSaved(details.statusCode, details.responseHeaders)) return {};
  const download = {
    address: details.url,
    first: firstAddress(details.requestId),
    referer: details.originUrl,
    size: sizeOf(details.responseHeaders),
    storeId: details.cookieStoreId,
  };
  const taken = await takeOver(download).catch(() => false);
  if (!taken) leftToBrowser.add(details.url);
  return { cancel: taken };
}

// Firefox: what begins without such an answer ("<a download>"). It goes on meanwhile, so a small one may be whole first.
async function onCreated(item) {
  if (leftToBrowser.delete(item.url) || item.byExtensionId === api.runtime.id || item.state !== 'in_progress') return;
  if (!(await takeOver(ofItem(item)))) return;
  const [now] = await api.downloads.search({ id: item.id });
  if (now?.state === 'complete') await api.downloads.removeFile(item.id);
  else await api.downloads.cancel(item.id);
  await api.downloads.erase({ id: item.id });
}

/** Begins to watch; to be called while the worker starts. */
export function watchDownloads() {
  if (asksForNames) return api.downloads.onDeterminingFilename.addListener(onDeterminingFilename);
  const filter = { urls: ['<all_urls>'], types: ['main_frame', 'sub_frame'] };
  api.webRequest.onHeadersReceived.addListener(onHeadersReceived, filter, ['blocking', 'responseHeaders']);
  return api.downloads.onCreated.addListener((item) => {
    onCreated(item).catch(() => {}); // the browser has it
  });
}
