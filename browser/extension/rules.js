// Which downloads go to Vantlow, and what a response is: facts in, decisions out. Nothing here touches the browser.

/** The person's settings, with what they are at first. Lists are texts, divided by blanks, commas or lines. */
export const defaultSettings = Object.freeze({
  enabled: true,
  leastSize: 1024 * 1024, // bytes; downloads of unknown size count as large
  takeEndings: '', // empty: all
  leaveEndings: '',
  excludedHosts: '', // with everything below them
  takeForms: false, // answers to forms, for which the form is sent a second time
  start: 'now', // or "ask": the person decides in the program
  remoteAddress: '', // of the program on another machine; empty: there is none
  remoteSecret: '',
});

export function wordsOf(text) {
  return text.toLowerCase().split(/[\s,;]+/).filter(Boolean);
}

/** The ending of a file name or of an address's path, lower case, without the dot; "" where there is none. */
export function endingOf(nameOrAddress) {
  let path = nameOrAddress;
  try {
    path = new URL(nameOrAddress).pathname;
  } catch {
    // A name is no address.
  }
  const name = path.slice(Math.max(path.lastIndexOf('/'), path.lastIndexOf('\\')) + 1);
  return /\.([a-z0-9]{1,10})$/i.exec(name)?.[1].toLowerCase() ?? '';
}

function hasEnding(download, list) {
  const endings = wordsOf(list).map((word) => word.replace(/^\*?\./, ''));
  return endings.includes(endingOf(download.name ?? '') || endingOf(download.address));
}

function isOfHost(address, list) {
  const host = new URL(address).hostname.toLowerCase();
  return wordsOf(list)
    .map((word) => word.replace(/^\*?\./, ''))
    .some((excluded) => host === excluded || host.endsWith(`.${excluded}`));
}

/** Schemes that the program fetches; blob: and data: exist in the browser alone. */
export function isFetchable(address) {
  return /^(https?|ftps?|sftp):\/\/./i.test(address) || /^(magnet:\?|ed2k:\/\/)./i.test(address);
}

/**
 * Decides about a download: {address, first, name, size (-1: unknown), method, form}. `next` is the switch for one
 * download: "browser", "vantlow" or nothing. Returns whether Vantlow takes it.
 */
export function takes(download, settings, next) {
  const isPlain = (download.method ?? 'GET') === 'GET';
  // What only the browser can ask for stays with it, whatever is wished.
  if (!isFetchable(download.address) || !(isPlain || download.form)) return false;
  if (next) return next === 'vantlow';
  if (!isPlain && !settings.takeForms) return false; // sent twice, a form may do twice what it does
  if (!settings.enabled || isOfHost(download.address, settings.excludedHosts)) return false;
  if (download.first && isFetchable(download.first) && isOfHost(download.first, settings.excludedHosts)) return false;
  if (hasEnding(download, settings.leaveEndings)) return false;
  if (wordsOf(settings.takeEndings).length > 0 && !hasEnding(download, settings.takeEndings)) return false;
  return !(download.size >= 0 && download.size < settings.leastSize);
}

const longestForm = 128 * 1024; // bytes

function base64Of(bytes) {
  let text = '';
  for (const byte of bytes) text += String.fromCharCode(byte);
  return btoa(text);
}

/**
 * The form of a request, {formType, form (base64)}, from what the browser tells of its body: null where it is none that can
 * be sent again as it was, such as one with files.
 */
export function formOf(body, contentType) {
  let bytes;
  if (/^application\/x-www-form-urlencoded\b/i.test(contentType) && body?.formData) {
    const fields = Object.entries(body.formData).flatMap(([name, values]) => values.map((value) => [name, value]));
    if (fields.some(([, value]) => typeof value !== 'string')) return null;
    bytes = new TextEncoder().encode(new URLSearchParams(fields).toString());
  } else if (contentType && body?.raw?.length === 1 && body.raw[0].bytes) {
    bytes = new Uint8Array(body.raw[0].bytes);
  }
  return bytes && bytes.length <= longestForm ? { formType: contentType, form: base64Of(bytes) } : null;
}

export function headerOf(headers, name) {
  return headers?.find((header) => header.name.toLowerCase() === name)?.value ?? '';
}

function mediaTypeOf(headers) {
  return headerOf(headers, 'content-type').split(';')[0].trim().toLowerCase();
}

/** The size of the whole resource that an answer tells; -1 where it tells none. */
export function sizeOf(headers) {
  const range = /\/(\d+)$/.exec(headerOf(headers, 'content-range'));
  const length = range?.[1] ?? headerOf(headers, 'content-length');
  return /^\d+$/.test(length) ? Number(length) : -1;
}

/**
 * Whether a browser that shows pages would save this answer as a file, as far as its head tells: Firefox does not say
 * so before it has begun.
 */
export function isSaved(statusCode, headers) {
  if (statusCode !== 200) return false;
  if (/^\s*attachment\b/i.test(headerOf(headers, 'content-disposition'))) return true;
  const type = mediaTypeOf(headers);
  if (!type.startsWith('application/')) return false; // texts, pictures, sound and films are shown
  return !/^application\/(pdf|json|xml|xhtml|javascript|ecmascript|.*\+(xml|json)$)/.test(type);
}

const streamTypes = /^(application\/(vnd\.apple\.mpegurl|x-mpegurl|dash\+xml)|audio\/(x-)?mpegurl)$/;
const streamEndings = ['m3u8', 'mpd'];
const pieceTypes = /^(video\/(mp2t|iso\.segment)|audio\/mp2t)$/;
const pieceEndings = ['ts', 'm4s', 'cmfv', 'cmfa', 'aac', 'vtt'];

/** What an answer is of a page's media: "stream" (a playlist), "video", "audio"; null for anything else and for pieces. */
export function mediaKind(address, headers) {
  const type = mediaTypeOf(headers);
  const ending = endingOf(address);
  if (!/^https?:/i.test(address)) return null;
  if (streamTypes.test(type) || streamEndings.includes(ending)) return 'stream';
  if (pieceTypes.test(type) || pieceEndings.includes(ending)) return null;
  return /^(video|audio)\//.exec(type)?.[1] ?? null;
}

/**
 * The login in an Authorization header: {user, password} of Basic (RFC 7617), {} where there is no header, null for a
 * scheme whose proof is good for the browser alone.
 */
export function loginOf(authorization) {
  if (!authorization) return {};
  const encoded = /^basic\s+([a-z0-9+/]+=*)\s*$/i.exec(authorization)?.[1];
  if (!encoded) return null;
  try {
    const bytes = Uint8Array.from(atob(encoded), (c) => c.charCodeAt(0));
    const [, user, password] = /^([^:]*):(.*)$/s.exec(new TextDecoder('utf-8', { fatal: true }).decode(bytes)) ?? [];
    return user === undefined ? null : { user, password };
  } catch {
    return null;
  }
}

/** The site of an address, as cookies are partitioned by: its scheme and the end of its host. */
function isOnSite(address, site) {
  try {
    const [page, top] = [new URL(address), new URL(site)];
    return page.protocol === top.protocol && `.${page.hostname}`.endsWith(`.${top.hostname}`);
  } catch {
    return false;
  }
}

/**
 * The Cookie header of these cookies: those without a partition, and those of the partition of a page that is on one
 * of the `pages`. Longer paths first (RFC 6265, 5.4).
 */
export function cookieHeader(cookies, pages) {
  return cookies
    .filter(({ partitionKey }) => !partitionKey?.topLevelSite || pages.some((page) => isOnSite(page, partitionKey.topLevelSite)))
    .sort((a, b) => b.path.length - a.path.length)
    .map((cookie) => (cookie.name ? `${cookie.name}=${cookie.value}` : cookie.value))
    .join('; ');
}

/** Links as a chooser lists them: fetchable, each address once, without its fragment, in their order. */
export function tidyLinks(links) {
  const seen = new Map();
  for (const { address, text } of links) {
    if (!isFetchable(address)) continue;
    const plain = /^https?:/i.test(address) ? address.replace(/#.*$/s, '') : address;
    const known = seen.get(plain);
    if (!known) seen.set(plain, { address: plain, text: (text ?? '').trim().slice(0, 200), ending: endingOf(plain) });
    else if (!known.text) known.text = (text ?? '').trim().slice(0, 200);
  }
  return [...seen.values()];
}

/** What a browser tells of a page to the server of an address where the page wishes nothing else. */
export function refererFor(page, address) {
  if (!/^https?:/i.test(page ?? '') || !URL.canParse(address)) return '';
  const from = new URL(page);
  const to = new URL(address);
  if (from.protocol === 'https:' && to.protocol !== 'https:') return '';
  return from.origin === to.origin ? page : `${from.origin}/`;
}
