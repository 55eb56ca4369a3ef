// What a page can do beyond showing itself.  Each part works without it: by links, by a form, by loading again.
"use strict";

const all = (selector, from = document) => [...from.querySelectorAll(selector)];

/** The page at an address, or null when there is none. */
async function load(address, signal) {
    const reply = await fetch(address, {signal, headers: {"X-Part": "1"}});
    return reply.ok ? new DOMParser().parseFromString(await reply.text(), "text/html") : null;
}

/** Long lists: the next piece comes when the link to it is near. */
function watchMore() {
    const more = document.querySelector("a.more");
    if (!more) return;
    const seen = new IntersectionObserver(async (entries) => {
        if (!entries.some((entry) => entry.isIntersecting)) return;
        seen.disconnect();
        const page = await load(more.href).catch(() => null);
        const list = document.getElementById("list"), next = page && page.getElementById("list");
        if (!list || !next) return;
        list.append(...next.children);
        const further = page.querySelector("a.more");
        if (further) more.replaceWith(further);
        else more.remove();
        watchMore();
    }, {rootMargin: "800px"});
    seen.observe(more);
}

/** Search while typing: the results stand in the page itself, under their permanent address. */
function watchSearch() {
    const field = document.getElementById("q");
    if (!field) return;
    let waiting = 0, running = null;
    const look = async () => {
        const address = "/search?q=" + encodeURIComponent(field.value);
        if (running) running.abort();
        running = new AbortController();
        const page = await load(address, running.signal).catch(() => null);
        const main = page && page.querySelector("main");
        if (!main) return;
        document.querySelector("main").replaceWith(main);
        document.title = page.title;
        const isThere = location.pathname === "/search";
        history[isThere ? "replaceState" : "pushState"]({}, "", address);
        all(".top [aria-current]").forEach((link) => link.removeAttribute("aria-current"));
        begin();
    };
    field.addEventListener("input", (event) => {
        clearTimeout(waiting);
        if (!event.isComposing && field.value.trim() !== "") waiting = setTimeout(look, 120);
    });
    field.addEventListener("compositionend", () => field.dispatchEvent(new Event("input")));
    addEventListener("popstate", () => location.reload());
}

/** The daemon at work: asked each second while somebody can see it. */
function watchLive() {
    const live = document.getElementById("live");
    if (!live) return;
    let busy = false;
    const look = async () => {
        if (busy || document.hidden || !live.isConnected) return;
        busy = true;
        const page = await load(live.dataset.address).catch(() => null);
        busy = false;
        const now = page && page.getElementById("live");
        if (!now) return;
        const said = document.getElementById("said");
        if (said && said.textContent !== now.dataset.state) said.textContent = now.dataset.state;
        live.className = now.className;
        live.replaceChildren(...now.childNodes);
    };
    const timer = setInterval(() => live.isConnected ? look() : clearInterval(timer), 1000);
    document.addEventListener("visibilitychange", look);
}

/** Playing: the tracks of a page one behind the other, in a bar at its foot. */
const player = {
    tracks: [], now: -1,
    begin() {
        this.tracks = all("a[data-play]");
        this.tracks.forEach((track, i) => track.addEventListener("click", (event) => {
            if (event.ctrlKey || event.metaKey || event.shiftKey || event.button) return;
            event.preventDefault();
            if (i === this.now) this.turn();
            else this.play(i);
        }));
        all("[data-play-all]").forEach((button) => {
            button.hidden = this.tracks.length === 0;
            button.addEventListener("click", () => this.play(0));
        });
    },
    bar() { return document.getElementById("player"); },
    sound() { return this.bar().querySelector("audio"); },
    mark() {
        all(".playing").forEach((row) => row.classList.remove("playing"));
        const track = this.tracks[this.now], row = track && track.closest("li");
        if (row) row.classList.add("playing");
    },
    play(i) {
        const track = this.tracks[i];
        if (!track) return;
        this.now = i;
        this.bar().hidden = false;
        this.bar().querySelector("p").textContent = track.dataset.play;
        const sound = this.sound();
        sound.src = track.href;
        sound.onended = () => this.play(this.now + 1);
        sound.onerror = () => {
            this.bar().querySelector("p").textContent = track.dataset.play + " \u2013 this browser cannot play it";
        };
        sound.play().catch(() => {});
        this.mark();
    },
    turn() {
        const media = this.now >= 0 ? this.sound() : document.querySelector("video, main audio");
        if (media) media.paused ? media.play().catch(() => {}) : media.pause();
        return Boolean(media);
    },
};

/** The link in a grid that an arrow key leads to. */
function neighbour(link, key) {
    const links = all("a", link.closest(".grid, .photos, .names")), at = links.indexOf(link);
    const rtl = getComputedStyle(link.parentElement).direction === "rtl" ? -1 : 1;
    if (key === "ArrowLeft") return links[at - rtl];
    if (key === "ArrowRight") return links[at + rtl];
    const from = link.getBoundingClientRect(), down = key === "ArrowDown";
    const rows = links.map((other) => [other, other.getBoundingClientRect()])
        .filter(([, box]) => down ? box.top > from.top + 4 : box.top < from.top - 4);
    const edge = down ? Math.min(...rows.map(([, box]) => box.top)) : Math.max(...rows.map(([, box]) => box.top));
    return rows.filter(([, box]) => Math.abs(box.top - edge) < 4)
        .sort(([, a], [, b]) => Math.abs(a.left - from.left) - Math.abs(b.left - from.left)).map(([other]) => other)[0];
}

function pressed(event) {
    if (event.ctrlKey || event.metaKey || event.altKey || event.defaultPrevented) return;
    const on = event.target, isTyping = on.closest("input, textarea, audio, video");
    if (event.key === "/" && !isTyping) {
        const field = document.getElementById("q");
        if (field) event.preventDefault(), field.focus(), field.select();
    } else if (event.key === " " && !isTyping && !on.closest("button, a")) {
        if (player.turn()) event.preventDefault();
    } else if (event.key.startsWith("Arrow") && !isTyping) {
        const link = on.closest(".grid a, .photos a, .names a");
        const next = link ? neighbour(link, event.key) : null;
        if (next) event.preventDefault(), next.focus();
        if (link) return;
        const turn = {ArrowLeft: "prev", ArrowRight: "next"}[event.key];
        const page = turn && document.querySelector(`a[rel="${turn}"]`);
        if (page) page.click();
    }
}

/** What belongs to the main part, which a search replaces. */
function begin() {
    watchMore();
    watchLive();
    player.begin();
}

document.addEventListener("keydown", pressed);
watchSearch();
begin();
