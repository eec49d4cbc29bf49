// The links of a page, of which some are chosen: by a filter, by hand.
import { api, message } from '../api.js';
import { askWorker, localize, make } from './page.js';

const field = (id) => document.getElementById(id);
const key = location.search.slice(1);

function lineOf(link) {
  const box = make('input', '', { type: 'checkbox' });
  const label = make('label', '', { className: 'name', title: link.address });
  label.append(box, ` ${link.text || link.address} `, make('span', link.address, { className: 'address' }));
  const line = make('li', '');
  line.append(label);
  return { line, box, link, searched: `${link.address}\n${link.text}`.toLowerCase() };
}

/** Every word of the filter is in the link's address or text; one that begins with a dot is its ending. */
function passes({ link, searched }, words) {
  return words.every((word) => (word.startsWith('.') ? `.${link.ending}` === word : searched.includes(word)));
}

async function begin() {
  localize();
  const { links, surroundings, title } = (await api.storage.session.get(key))[key] ?? { links: [] };
  let lines = links.map(lineOf);
  field('title').textContent = message('chooser_title', links.length, title ?? '');
  field('links').append(...lines.map(({ line }) => line));
  const chosen = () => lines.filter(({ box }) => box.checked);
  const count = () => {
    field('fetch').textContent = message('fetch_chosen', chosen().length);
    field('fetch').disabled = chosen().length === 0;
  };
  field('filter').addEventListener('input', () => {
    const words = field('filter').value.toLowerCase().split(/\s+/).filter(Boolean);
    for (const one of lines) one.line.hidden = !passes(one, words);
  });
  field('all').addEventListener('click', () => {
    for (const { line, box } of lines) box.checked ||= !line.hidden;
    count();
  });
  field('none').addEventListener('click', () => {
    for (const { box } of lines) box.checked = false;
    count();
  });
  field('links').addEventListener('change', count);
  field('fetch').addEventListener('click', async () => {
    field('fetch').disabled = true;
    const asked = chosen();
    const downloads = asked.map(({ link }) => ({ ...surroundings, address: link.address }));
    const taken = await askWorker({ type: 'handOver', downloads }).catch(() => []);
    asked.filter((one, i) => taken[i]).forEach(({ line }) => line.remove());
    lines = lines.filter((one) => !asked.includes(one) || !taken[asked.indexOf(one)]);
    const left = asked.length - taken.filter(Boolean).length;
    field('problem').textContent = left > 0 ? message('not_taken', left) : '';
    count();
    if (lines.length === 0) close();
  });
  count();
}

begin();
