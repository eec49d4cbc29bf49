// The window of the button: what the program does, the switches, the media of the page.
import { api, loadSettings, message } from '../api.js';
import { askWorker, lastPart, localize, make, sizeText } from './page.js';

const field = (id) => document.getElementById(id);

async function showStatus() {
  const { reachable, reason, resident, running, waiting, problem, next } = await askWorker({ type: 'status' });
  const asleep = reachable && !resident ? message('asleep') : message('running', running, waiting);
  field('status').textContent = reachable ? asleep : message('no_program');
  const trouble = problem || (reachable ? '' : reason);
  field('problem').hidden = !trouble;
  field('problem').textContent = trouble ?? '';
  for (const choice of document.querySelectorAll('#next input')) choice.checked = choice.value === (next ?? '');
}

async function showMedia(tabId) {
  const media = tabId === undefined ? [] : await askWorker({ type: 'media', tabId });
  field('none').hidden = media.length > 0;
  for (const { address, kind, size } of media) {
    const button = make('button', message('fetch'));
    button.addEventListener('click', async () => {
      const [taken] = await askWorker({ type: 'handOver', tabId, downloads: [{ address }] });
      button.disabled = taken;
      await showStatus();
    });
    const line = make('li', '');
    line.append(
      make('span', lastPart(address), { className: 'name', title: address }),
      make('span', `${message(`kind_${kind}`)} ${sizeText(size)}`, { className: 'note' }),
      button,
    );
    field('media').append(line);
  }
}

async function begin() {
  localize();
  const [[tab], settings] = await Promise.all([api.tabs.query({ active: true, currentWindow: true }), loadSettings()]);
  field('enabled').checked = settings.enabled;
  field('enabled').addEventListener('change', () => api.storage.local.set({ enabled: field('enabled').checked }));
  field('next').addEventListener('change', ({ target }) => askWorker({ type: 'next', next: target.value || undefined }));
  field('options').addEventListener('click', () => api.runtime.openOptionsPage());
  field('links').addEventListener('click', async () => {
    await askWorker({ type: 'chooseLinks', tabId: tab.id }).then(() => close(), (error) => {
      field('problem').hidden = false;
      field('problem').textContent = error.message; // a page that belongs to the browser
    });
  });
  await Promise.all([showStatus(), showMedia(tab?.id)]);
}

begin();
