// The worker of the extension. Whatever it listens to is registered here, while it starts: later the browser would wake
// it for nothing.
import { api } from './api.js';
import { watchDownloads } from './downloads.js';
import { follow, getNext, handOver, setNext, status } from './handover.js';
import { mediaOf, watchMedia } from './media.js';
import { chooseLinks, surroundingsOf, watchMenus } from './menus.js';
import { ask } from './program.js';
import { watchRequests } from './requests.js';

// What the extension's own pages ask for.
const answers = {
  status: async () => ({ ...(await status()), ...(await api.storage.session.get('problem')), next: await getNext() }),
  hello: () => ask({ type: 'hello' }),
  next: ({ next }) => setNext(next),
  media: ({ tabId }) => mediaOf(tabId),
  // The downloads of a page, or of a tab that is told.
  handOver: async ({ downloads, tabId }) => {
    const common = tabId === undefined ? {} : surroundingsOf(await api.tabs.get(tabId));
    return handOver(downloads.map((one) => ({ ...common, ...one })));
  },
  chooseLinks: async ({ tabId }) => chooseLinks(await api.tabs.get(tabId)),
};

watchRequests();
watchDownloads();
watchMedia();
watchMenus();
api.runtime.onStartup.addListener(follow);
api.commands.onCommand.addListener((command) => setNext(command.replace('next-to-', '')));
api.runtime.onMessage.addListener((request, sender, answer) => {
  const work = answers[request.type];
  if (!work || sender.id !== api.runtime.id) return false;
  work(request).then(answer, (error) => answer({ error: error.message }));
  return true;
});
