// The program: the one on this machine, or where that is not there the one on another machine that the person named.
import { loadSettings } from './api.js';
import { askHost } from './host.js';
import { askRemote } from './remote.js';

/** Asks the program. Rejects where it is missing, refuses or does not answer in time. */
export async function ask(request) {
  try {
    return await askHost(request);
  } catch (error) {
    const { remoteAddress, remoteSecret } = await loadSettings();
    // What was here may have done it already: nothing is asked for twice.
    if (!error.isMissing || !remoteAddress) throw error;
    return askRemote(request, remoteAddress, remoteSecret);
  }
}
