// The conversation with the program: one process of it ("vantlow native-host") for as long as there is something to say.
import { api } from './api.js';

const hostName = 'vantlow';
const version = 1;
const patience = 40_000; // ms; the program may have to be started first
const idleTime = 20_000; // ms until the process is let go

let port = null;
let hasAnswered = false; // whatever stands behind the port
let lastId = 0;
let idleTimer = 0;
const waiting = new Map(); // id to {resolve, reject, timer}

function letGoLater() {
  clearTimeout(idleTimer);
  idleTimer = setTimeout(() => {
    if (waiting.size > 0) return; // the end of the last one comes back to this
    port?.disconnect();
    port = null;
  }, idleTime);
}

// Takes a request out of those that wait; undefined where it has ended already.
function end(id) {
  const one = waiting.get(id);
  waiting.delete(id);
  clearTimeout(one?.timer);
  letGoLater();
  return one;
}

function dropPort(reason) {
  port = null;
  const isMissing = !hasAnswered;
  for (const id of [...waiting.keys()]) end(id).reject(Object.assign(new Error(reason), { isMissing }));
}

function connect() {
  const made = api.runtime.connectNative(hostName);
  hasAnswered = false;
  made.onMessage.addListener((answer) => {
    hasAnswered = true;
    const one = end(answer.id);
    if (!one) return;
    if (answer.ok) one.resolve(answer);
    else one.reject(Object.assign(new Error(answer.reason), { code: answer.code }));
  });
  made.onDisconnect.addListener((ended) => {
    // Firefox tells the reason with the port.
    const reason = ended?.error?.message ?? api.runtime.lastError?.message ?? '';
    if (port === made) dropPort(reason);
  });
  return made;
}

/** Asks the program. Rejects where it is missing (`isMissing`), refuses or does not answer in time. */
export function askHost(request) {
  return new Promise((resolve, reject) => {
    const id = ++lastId;
    const timer = setTimeout(() => end(id)?.reject(new Error('timeout')), patience);
    waiting.set(id, { resolve, reject, timer });
    try {
      port ??= connect();
      port.postMessage({ version, id, ...request });
    } catch (error) {
      end(id)?.reject(Object.assign(error, { isMissing: true }));
    }
  });
}
