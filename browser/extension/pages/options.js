// The settings, saved as they are changed; and whether the program can be reached.
import { api, loadSettings, message } from '../api.js';
import { askWorker, localize } from './page.js';

const field = (id) => document.getElementById(id);
const everywhere = { origins: ['<all_urls>'] };
const kibi = 1024;

const box = { get: (input) => input.checked, set: (input, value) => { input.checked = value; } };
// How each setting stands in its field.
const fields = {
  enabled: box,
  takeForms: box,
  leastSize: {
    get: (input) => Math.max(0, Math.round(input.valueAsNumber || 0)) * kibi,
    set: (input, value) => { input.valueAsNumber = Math.round(value / kibi); },
  },
};
const plain = { get: (input) => input.value, set: (input, value) => { input.value = value; } };

async function showProgram() {
  try {
    const { program } = await askWorker({ type: 'hello' });
    field('program').textContent = message('reached', program);
    field('program').className = '';
    field('help').hidden = true;
  } catch (error) {
    field('program').textContent = `${message('no_program')} ${error.message}`;
    field('program').className = 'problem';
    field('help').hidden = false;
  }
}

// Firefox lets people take the sites away from an extension.
async function showPermission() {
  field('permit').hidden = await api.permissions.contains(everywhere);
}

async function begin() {
  localize();
  const settings = await loadSettings();
  for (const [name, value] of Object.entries(settings)) {
    const { get, set } = fields[name] ?? plain;
    set(field(name), value);
    field(name).addEventListener('change', () => api.storage.local.set({ [name]: get(field(name)) }));
  }
  api.storage.onChanged.addListener((changes) => (changes.remoteAddress || changes.remoteSecret) && showProgram());
  field('permit').addEventListener('click', () => api.permissions.request(everywhere).then(showPermission));
  await Promise.all([showProgram(), showPermission()]);
}

begin();
