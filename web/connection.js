// The way to the program: JSON-RPC over a WebSocket, which also brings notifications, and over POST wherever the WebSocket is
// not there. Whoever calls does not see which of the two it was.

const FIRST_WAIT = 1000; // milliseconds before the WebSocket is tried again, doubled up to LONGEST_WAIT
const LONGEST_WAIT = 30000;
const PATIENCE = 30000; // milliseconds for an answer

/** The program answered that it does not do this. */
export class Refused extends Error {}
/** The secret is missing or wrong. */
export class Locked extends Error {}
/** There was no answer. */
export class Unreachable extends Error {}

export class Connection {
    #secret = "";
    #socket = null;
    #wait = FIRST_WAIT;
    #last = 0;
    #pending = new Map(); // id to what its answer goes to
    #notify;

    /** `notify` is called with the method of each notification. */
    constructor(notify) {
        this.#notify = notify;
    }

    set secret(text) {
        this.#secret = text;
    }

    get isLive() {
        return this.#socket?.readyState === WebSocket.OPEN;
    }

    /** The result of one call. Throws Refused, Locked or Unreachable. */
    async call(method, ...params) {
        const [answer] = await this.all([[method, ...params]]);
        if (answer instanceof Error) throw answer;
        return answer;
    }

    /** The results of several calls in one request, each its own or a Refused. Throws Locked or Unreachable. */
    async all(calls) {
        const requests = calls.map(([method, ...params]) => ({
            jsonrpc: "2.0",
            id: ++this.#last,
            method,
            params: [`token:${this.#secret}`, ...params],
        }));
        const answers = await (this.isLive ? this.#overSocket(requests) : this.#overPost(requests));
        return requests.map(({ id }) => {
            const answer = answers.find((one) => one.id === id);
            if (answer?.error?.message === "Unauthorized") throw new Locked(answer.error.message);
            return answer?.error ? new Refused(answer.error.message) : answer?.result;
        });
    }

    /** Opens the WebSocket and keeps it open. To be called once the secret is known to be right. */
    open() {
        if (this.#socket) return;
        const address = new URL("jsonrpc", location.href);
        address.protocol = address.protocol.replace("http", "ws");
        const socket = new WebSocket(address);
        this.#socket = socket;
        socket.onopen = () => (this.#wait = FIRST_WAIT);
        socket.onmessage = ({ data }) => this.#take(JSON.parse(data));
        socket.onclose = () => {
            this.#socket = null;
            for (const { reject } of this.#pending.values()) reject(new Unreachable());
            this.#pending.clear();
            setTimeout(() => this.open(), this.#wait);
            this.#wait = Math.min(this.#wait * 2, LONGEST_WAIT);
        };
    }

    #take(message) {
        const first = Array.isArray(message) ? message[0] : message;
        const pending = this.#pending.get(first?.id);
        if (pending) pending.resolve(Array.isArray(message) ? message : [message]);
        else if (first?.method) this.#notify(first.method);
    }

    #overSocket(requests) {
        const [{ id }] = requests;
        return new Promise((resolve, reject) => {
            const timer = setTimeout(() => this.#socket?.close(), PATIENCE);
            const over = (then) => (value) => {
                clearTimeout(timer);
                this.#pending.delete(id);
                then(value);
            };
            this.#pending.set(id, { resolve: over(resolve), reject: over(reject) });
            this.#socket.send(JSON.stringify(requests));
        });
    }

    async #overPost(requests) {
        try {
            const answer = await fetch("jsonrpc", {
                method: "POST",
                headers: { "Content-Type": "application/json" },
                body: JSON.stringify(requests),
                signal: AbortSignal.timeout(PATIENCE),
            });
            const json = await answer.json();
            return Array.isArray(json) ? json : [json];
        } catch {
            throw new Unreachable();
        }
    }
}
