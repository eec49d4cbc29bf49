// What the browser's own requests looked like, for the downloads that come of them: kept for some minutes, by address
// and by request.
import { api, asksForNames } from './api.js';
import { cookieHeader, formOf, headerOf, loginOf, refererFor } from './rules.js';

const most = 300;
const types = ['main_frame', 'sub_frame', 'object', 'other'];
const byAddress = new Map();
const firstOfRequest = new Map();
const bodies = new Map(); // of requests that have one, until they are sent

function remember(map, key, value) {
  map.delete(key); // what is new stands last
  map.set(key, value);
  if (map.size > most) map.delete(map.keys().next().value);
}

// A worker may end between a request and its answer: that an address was posted to must outlive it.
async function rememberPost(address) {
  const { posts = [] } = await api.storage.session.get('posts');
  await api.storage.session.set({ posts: [...posts, address].slice(-50) });
}

// A promise, for Chromium's requests do not tell it; of nothing where the tab has gone.
async function storeOfTab(tabId) {
  return api.tabs.get(tabId).then(storeOf, () => undefined);
}

/** The cookie store of a tab or of a download. */
export function storeOf({ cookieStoreId, incognito }) {
  return cookieStoreId ?? (incognito ? '1' : '0');
}

/** Begins to watch; to be called while the worker starts. */
export function watchRequests() {
  const filter = { urls: ['<all_urls>'], types };
  api.webRequest.onBeforeRequest.addListener(
    (details) => {
      if (details.method === 'POST' && details.requestBody) remember(bodies, details.requestId, details.requestBody);
    },
    filter,
    ['requestBody'],
  );
  api.webRequest.onSendHeaders.addListener(
    (details) => {
      if (!firstOfRequest.has(details.requestId)) remember(firstOfRequest, details.requestId, details.url);
      const absent = asksForNames && details.type === 'other' ? undefined : ''; // Chromium adds the rest of "<a download>" later
      remember(byAddress, details.url, {
        method: details.method,
        referer: headerOf(details.requestHeaders, 'referer') || absent,
        agent: headerOf(details.requestHeaders, 'user-agent'),
        cookies: headerOf(details.requestHeaders, 'cookie') || absent,
        authorization: headerOf(details.requestHeaders, 'authorization'),
        storeId: details.cookieStoreId ?? storeOfTab(details.tabId),
        form: details.method === 'POST' ? formOf(bodies.get(details.requestId), headerOf(details.requestHeaders, 'content-type')) : null,
      });
      bodies.delete(details.requestId);
      if (details.method !== 'GET') rememberPost(details.url);
    },
    filter,
    asksForNames ? ['requestHeaders', 'extraHeaders'] : ['requestHeaders'],
  );
}

/** The address that the request of this id began with; undefined where it was not seen. */
export const firstAddress = (requestId) => firstOfRequest.get(requestId);

/** The method by which the address was asked for last: GET where nothing is known of it. */
export async function methodOf(address) {
  const seen = byAddress.get(address);
  if (seen) return seen.method;
  const { posts = [] } = await api.storage.session.get('posts');
  return posts.includes(address) ? 'POST' : 'GET';
}

/** The form that was sent to the address last; null where none was, or nothing is known of it any more. */
export const formTo = (address) => byAddress.get(address)?.form ?? null;

async function storedCookies(address, storeId, pages) {
  const query = { url: address, storeId, partitionKey: {} };
  if (!asksForNames) query.firstPartyDomain = null; // with or without
  return cookieHeader(await api.cookies.getAll(query), pages);
}

/**
 * Completes a download {address, first, referer, name, storeId, form} to what the program is told: with the cookies of the
 * right store, referer, agent and login. Null where the browser logged in by a way that only it can go.
 */
export async function factsOf({ address, first, referer, name, storeId, form }) {
  const last = byAddress.get(address);
  const seen = last && (await last.storeId) === storeId ? last : undefined; // else it was another window's
  const login = loginOf(seen?.authorization);
  if (login === null) return null;
  const isWeb = /^https?:/i.test(address);
  // A browser that told no page, or sent no cookie, had its reasons.
  const page = seen?.referer ?? refererFor(referer, address);
  const facts = { address, agent: isWeb ? seen?.agent || navigator.userAgent : '', name: name ?? '', ...login, ...form };
  if (first && first !== address) facts.first = first;
  if (/^https?:/i.test(page)) facts.referer = page.replace(/#.*$/s, '');
  if (isWeb) facts.cookies = seen?.cookies ?? (await storedCookies(address, storeId, [address, referer ?? '']));
  return facts;
}
