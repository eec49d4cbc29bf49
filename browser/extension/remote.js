// The program on another machine, over its control API: the same questions as the one on this machine is asked, the same
// answers.
import { api, message } from './api.js';

const patience = 20_000; // ms

function optionsOf({ referer, agent, cookies, name, user, password }, start) {
  const options = { header: cookies ? [`Cookie: ${cookies}`] : [] };
  if (agent) options['user-agent'] = agent;
  if (referer) options.referer = referer;
  if (name) options.out = name;
  if (user) options['http-user'] = user;
  if (password) options['http-passwd'] = password;
  if (start === 'ask') options.pause = 'true';
  return options;
}

/** The address of the control API from what a person writes: "nas:6800" is enough. Throws where it is none. */
export function endpointOf(text) {
  const address = new URL(/^https?:\/\//i.test(text) ? text : `http://${text}`);
  if (address.pathname === '/') address.pathname = '/jsonrpc';
  return address.href;
}

/** Asks the program there, as host.js asks the one here. Rejects where it does not answer in time, or refuses. */
export async function askRemote(request, address, secret) {
  const token = secret ? [`token:${secret}`] : [];
  const call = async (method, params) => {
    const answer = await fetch(endpointOf(address), {
      method: 'POST',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify({ jsonrpc: '2.0', id: api.runtime.id, method, params }),
      credentials: 'omit',
      signal: AbortSignal.timeout(patience),
    });
    const { result, error } = await answer.json();
    if (error) throw new Error(error.message);
    return result;
  };
  if (request.type === 'hello') {
    const { enabledFeatures } = await call('aria2.getVersion', token);
    const name = enabledFeatures.includes('Vantlow') ? 'Vantlow' : 'aria2';
    return { program: `${name} (${new URL(endpointOf(address)).host})` };
  }
  if (request.type === 'status') {
    const { numActive } = await call('aria2.getGlobalStat', token);
    return { resident: true, running: Number(numActive), waiting: 0 }; // paused ones would be counted, too
  }
  // Its words have none for a form.
  if (request.downloads.some((one) => one.form)) throw new Error(message('stays_with_browser'));
  const calls = request.downloads.map((one) => ({
    methodName: 'aria2.addUri',
    params: [...token, [one.address], optionsOf(one, request.start)],
  }));
  const results = await call('system.multicall', [calls]);
  return { results: results.map((one) => (Array.isArray(one) ? { ok: true, jobs: one } : { ok: false, reason: one.message })) };
}
