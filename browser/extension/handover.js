// Downloads on their way to the program, and the number on the button that tells how many it runs.
import { api, loadSettings, message } from './api.js';
import { ask } from './program.js';
import { factsOf } from './requests.js';

const batch = 100; // downloads in one message
const pace = 2_000; // ms between two looks while something runs
let follows = 0;

async function showBadge(text) {
  await api.action.setBadgeBackgroundColor({ color: '#1f6feb' });
  await api.action.setBadgeText({ text });
}

/** The switch for the next download: "browser", "vantlow" or undefined. */
export async function getNext() {
  return (await api.storage.session.get('next')).next;
}

export async function setNext(next) {
  await api.storage.session.set({ next: next ?? null });
  if (next) await showBadge(next === 'vantlow' ? 'V' : 'B');
  else await follow();
}

/** The numbers of the program; nothing runs where it cannot be asked. */
export async function status() {
  try {
    const { resident, running, waiting } = await ask({ type: 'status' });
    return { reachable: true, resident, running, waiting };
  } catch (error) {
    return { reachable: false, reason: error.message, running: 0, waiting: 0 };
  }
}

/** Shows the number of running downloads, for as long as there are any. */
export async function follow() {
  clearTimeout(follows);
  const { running, waiting } = await status();
  if (!(await getNext())) await showBadge(running > 0 ? String(running) : '');
  if (running + waiting > 0) follows = setTimeout(follow, pace);
}

async function tellOfFailure(reason) {
  await api.storage.session.set({ problem: reason || message('no_program') });
}

/**
 * Hands downloads over ({address, first, referer, name, storeId} each). Returns for each whether the program has it; none
 * of them where it is missing.
 */
export async function handOver(downloads) {
  const { start } = await loadSettings();
  const taken = [];
  for (let from = 0; from < downloads.length; from += batch) {
    const facts = await Promise.all(downloads.slice(from, from + batch).map(factsOf));
    const asked = facts.filter(Boolean);
    let results = [];
    try {
      if (asked.length > 0) ({ results } = await ask({ type: 'add', start, downloads: asked }));
      await api.storage.session.remove('problem');
    } catch (error) {
      await tellOfFailure(error.message);
    }
    const answers = results.values();
    for (const one of facts) {
      const answer = one ? answers.next().value : undefined;
      if (answer?.reason) await tellOfFailure(answer.reason);
      taken.push(Boolean(answer?.ok));
    }
  }
  if (taken.some(Boolean)) follow();
  return taken;
}
