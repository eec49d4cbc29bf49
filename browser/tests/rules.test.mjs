// The extension's rules, with node's own test runner.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { readdirSync, readFileSync } from 'node:fs';
import { test } from 'node:test';
import { cookieHeader, defaultSettings, endingOf, formOf, isSaved, loginOf, mediaKind, refererFor, sizeOf, takes, tidyLinks } from '../extension/rules.js';

const extension = new URL('../extension/', import.meta.url);
const read = (name) => readFileSync(new URL(name, extension), 'utf8');
const headers = (all) => Object.entries(all).map(([name, value]) => ({ name, value }));

test('a download is taken by the rules, by the switch, and never where only the browser has it', () => {
  const large = { address: 'https://files.example.com/a.zip?x=.exe', name: 'a.zip', size: 5e6 };
  const cases = [
    [true, {}, {}],
    [true, { size: -1 }, {}],
    [false, { size: 5 }, {}],
    [true, { size: 5 }, {}, 'vantlow'],
    [false, {}, {}, 'browser'],
    [false, {}, { enabled: false }],
    [true, {}, { enabled: false }, 'vantlow'],
    [false, { method: 'POST' }, { takeForms: true }, 'vantlow'],
    [false, { method: 'POST', form: {} }, {}],
    [true, { method: 'POST', form: {} }, { takeForms: true }],
    [true, { method: 'POST', form: {} }, {}, 'vantlow'],
    [false, { address: 'blob:https://h/1' }, {}, 'vantlow'],
    [false, { address: 'data:,x' }, {}],
    [false, {}, { excludedHosts: 'other.org, *.Example.com' }],
    [true, {}, { excludedHosts: 'xample.com les.example.com.org' }],
    [false, { first: 'https://example.com/go' , address: 'https://cdn.net/a.zip' }, { excludedHosts: 'example.com' }],
    [false, {}, { leaveEndings: 'PDF *.zip' }],
    [true, { name: 'a.pdf' }, { leaveEndings: '.zip' }],
    [true, {}, { takeEndings: 'iso;zip' }],
    [false, {}, { takeEndings: 'iso' }],
    [true, { name: '' }, { takeEndings: 'zip' }],
  ];
  for (const [taken, download, settings, next] of cases) {
    assert.equal(takes({ ...large, ...download }, { ...defaultSettings, ...settings }, next), taken, JSON.stringify([download, settings, next]));
  }
});

test('a form is taken as it was, or not at all', () => {
  const urlencoded = 'application/x-www-form-urlencoded';
  const raw = [{ bytes: new TextEncoder().encode('a=1').buffer }];
  const cases = [
    ['a+b=%C3%A4%26&c=1&c=2', urlencoded, { formData: { 'a b': ['\u00e4&'], c: ['1', '2'] } }],
    ['a=1', 'text/plain', { raw }],
    [null, 'multipart/form-data; boundary=x', { formData: { a: ['1'] } }],
    [null, urlencoded, { formData: { a: [new ArrayBuffer(1)] } }],
    [null, 'text/plain', { raw: [...raw, { file: '/etc/passwd' }] }],
    [null, 'text/plain', { raw: [{ bytes: new ArrayBuffer(1 << 20) }] }],
    [null, '', { raw }],
    [null, urlencoded, undefined],
  ];
  for (const [body, type, given] of cases) {
    const form = formOf(given, type);
    assert.equal(form && Buffer.from(form.form, 'base64').toString(), body, type);
    if (form) assert.equal(form.formType, type);
  }
});

test('answers are known for what they are', () => {
  const saved = [
    [true, 200, { 'content-type': 'application/octet-stream' }],
    [true, 200, { 'Content-Disposition': 'attachment; filename=x', 'content-type': 'text/html' }],
    [false, 200, { 'content-disposition': 'inline', 'content-type': 'application/pdf' }],
    [false, 200, { 'content-type': 'application/ld+json; charset=utf-8' }],
    [false, 404, { 'content-disposition': 'attachment' }],
    [false, 200, {}],
  ];
  for (const [is, status, all] of saved) assert.equal(isSaved(status, headers(all)), is, JSON.stringify(all));
  assert.equal(sizeOf(headers({ 'content-length': '10', 'content-range': 'bytes 0-9/1234' })), 1234);
  assert.equal(sizeOf(headers({ 'content-length': 'many' })), -1);
  const media = [
    ['stream', 'https://h/live?x', 'application/vnd.apple.mpegurl'],
    ['stream', 'https://h/a.mpd', 'text/plain'],
    ['video', 'https://h/v', 'video/mp4; codecs=x'],
    [null, 'https://h/7.ts', 'video/mp2t'],
    [null, 'https://h/p.m4s', 'video/mp4'],
    [null, 'https://h/', 'text/html'],
    [null, 'blob:https://h/', 'video/mp4'],
  ];
  for (const [kind, address, type] of media) assert.equal(mediaKind(address, headers({ 'Content-Type': type })), kind, address);
  assert.deepEqual(['https://h/a.b/c.TAR.gz#x.y', 'C:\\d\\e.Zip', 'https://h.com', 'a. b'].map(endingOf), ['gz', 'zip', '', '']);
});

test('logins and cookies are those of the download', () => {
  assert.deepEqual(loginOf(`Basic ${Buffer.from('me:p:\u00e4').toString('base64')}`), { user: 'me', password: 'p:\u00e4' });
  assert.deepEqual(loginOf(''), {});
  for (const other of ['Bearer abc', 'Basic !', 'Basic bWU=']) assert.equal(loginOf(other), null, other);
  const cookies = [
    { name: 'a', value: '1', path: '/' },
    { name: 'b', value: '2', path: '/deep/er' },
    { name: 'c', value: '3', path: '/', partitionKey: { topLevelSite: 'https://shop.com' } },
    { name: 'd', value: '4', path: '/', partitionKey: { topLevelSite: 'https://other.com' } },
  ];
  assert.equal(cookieHeader(cookies, ['https://www.shop.com/x', '']), 'b=2; a=1; c=3');
});

test('links are listed once, without what cannot be fetched', () => {
  const links = [['https://h/a#1', ''], ['https://h/a#2', ' A '], ['javascript:x', 'no'], ['magnet:?xt=1#n', 'm']];
  const tidy = tidyLinks(links.map(([address, text]) => ({ address, text })));
  assert.deepEqual(tidy.map(({ address, text }) => [address, text]), [['https://h/a', 'A'], ['magnet:?xt=1#n', 'm']]);
});

test('the manifest and the program name the same extension, and all words are there in every language', () => {
  const manifest = JSON.parse(read('manifest.json'));
  const digest = createHash('sha256').update(Buffer.from(manifest.key, 'base64')).digest('hex').slice(0, 32);
  const id = [...digest].map((digit) => 'abcdefghijklmnop'[parseInt(digit, 16)]).join('');
  const program = read('../../src/app/browser/browser.h');
  assert.ok(program.includes(`chrome-extension://${id}/`) && program.includes(`"${manifest.browser_specific_settings.gecko.id}"`));
  const languages = readdirSync(new URL('_locales/', extension)).map((name) => JSON.parse(read(`_locales/${name}/messages.json`)));
  const words = Object.keys(languages[0]).sort();
  for (const language of languages) assert.deepEqual(Object.keys(language).sort(), words);
  const sources = readdirSync(extension, { recursive: true }).filter((name) => /\.(js|html|json)$/.test(name) && !name.includes('_locales'));
  const named = sources.flatMap((name) => [...read(name).matchAll(/(?:message\('|data-(?:words|hint)="|__MSG_)(\w+?)(?:'|"|__)/g)].map((match) => match[1]));
  for (const name of named) assert.ok(words.includes(name), name);
  assert.deepEqual(words.filter((name) => !named.includes(name) && !/^(menu|kind)_/.test(name)), []);
});

test('a page is told as browsers tell it: whole to its own server, without its path to others, never in the clear', () => {
  const page = 'https://mail.example/reset?token=1';
  assert.equal(refererFor(page, 'https://mail.example/file.zip'), page);
  assert.equal(refererFor(page, 'https://other.example/file.zip'), 'https://mail.example/');
  assert.equal(refererFor(page, 'http://mail.example/file.zip'), '');
  for (const nothing of [undefined, '', 'about:blank', 'file:///home/a']) assert.equal(refererFor(nothing, 'https://a.example/'), '');
});
