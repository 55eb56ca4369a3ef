// What a page can do beyond showing itself.  Each part works without it: by links, by a form, by loading again.
"use strict";

const all = (selector, from = document) => [...from.querySelectorAll(selector)];

/** The page at an address, or null when there is none. */
async function load(address, signal) {
    const reply = await fetch(address, {signal});
    return reply.ok ? new DOMParser().parseFromString(await reply.text(), "text/html") : null;
}

/** The page that is shown, without the place in it. */
const place = () => location.href.split("#")[0];
let shown = place();

/** Puts what a loaded page shows in the place of what this one does: a song that plays goes on. */
function show(page, address, how) {
    document.querySelector("main").replaceWith(page.querySelector("main"));
    document.querySelector(".top nav").replaceWith(page.querySelector(".top nav"));
    document.title = page.title;
    if (how) history[how]({}, "", address);
    shown = place();
    begin();
}

function say(text) {
    const said = document.getElementById("said");
    if (said.textContent !== text) said.textContent = text;
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
        if (!list || !next || !more.isConnected) return;
        const tracks = all("a[data-play]", next);
        list.append(...next.children);
        player.goOn(list, tracks);
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
        const address = field.form.action + "?q=" + encodeURIComponent(field.value);
        if (running) running.abort();
        running = new AbortController();
        const page = await load(address, running.signal).catch(() => null);
        if (!page || !page.querySelector("main")) return;
        show(page, address, location.pathname === new URL(address).pathname ? "replaceState" : "pushState");
        say(document.querySelector("[data-said]").textContent);
    };
    field.addEventListener("input", (event) => {
        clearTimeout(waiting);
        if (!event.isComposing && field.value.trim() !== "") waiting = setTimeout(look, 120);
    });
    field.addEventListener("compositionend", () => field.dispatchEvent(new Event("input")));
}

/** The daemon at work: asked each second while somebody can see it. */
async function lookAtLive() {
    const parts = all("[data-live]");
    if (parts.length === 0 || document.hidden || lookAtLive.busy) return;
    lookAtLive.busy = true;
    const page = await load(parts[0].dataset.live).catch(() => null);
    lookAtLive.busy = false;
    for (const part of parts) {
        const now = page && page.getElementById(part.id);
        if (!now) continue;
        if (now.dataset.state && now.dataset.state !== part.dataset.state) say(now.dataset.state);
        part.dataset.state = now.dataset.state || "";
        part.className = now.className;
        if (part.innerHTML !== now.innerHTML) part.replaceChildren(...now.childNodes);
    }
}

/** Playing: the tracks of a list one behind the other, in a bar at the foot of the page. */
const player = {
    tracks: [], now: -1, list: null,
    bar: document.getElementById("player"),
    get sound() { return this.bar.querySelector("audio"); },
    get isPlaying() { return Boolean(this.bar) && !this.bar.hidden && !this.sound.paused; },
    start(first, isShuffled) {
        const links = all("a[data-play]");
        this.list = document.getElementById("list");
        this.tracks = links.map((link) => ({address: link.href, name: link.dataset.play}));
        if (isShuffled)
            for (let i = this.tracks.length; i > 1;) {
                const j = Math.floor(Math.random() * i--);
                [this.tracks[i], this.tracks[j]] = [this.tracks[j], this.tracks[i]];
            }
        this.play(first ? links.indexOf(first) : 0);
    },
    goOn(list, links) {
        if (list === this.list) this.tracks.push(...links.map((link) => ({address: link.href, name: link.dataset.play})));
        this.mark();
    },
    mark() {
        const track = this.tracks[this.now];
        for (const link of all("a[data-play]"))
            link.closest("li").classList.toggle("playing", Boolean(track) && link.href === track.address);
    },
    play(i) {
        const track = this.tracks[i];
        if (!track) return;
        this.now = i;
        this.bar.hidden = false;
        const title = this.bar.querySelector("p"), sound = this.sound;
        title.textContent = track.name;
        all("[data-step]", this.bar).forEach((button) => {
            button.disabled = !this.tracks[i + Number(button.dataset.step)];
        });
        sound.src = track.address;
        sound.onended = () => this.play(this.now + 1);
        sound.onerror = () => { title.textContent = track.name + " \u2013 it cannot be played"; };
        sound.play().catch(() => {});
        if (navigator.mediaSession) {
            navigator.mediaSession.metadata = new MediaMetadata({title: track.name});
            navigator.mediaSession.setActionHandler("previoustrack", () => this.play(this.now - 1));
            navigator.mediaSession.setActionHandler("nexttrack", () => this.play(this.now + 1));
        }
        this.mark();
    },
    turn() {
        const media = this.now >= 0 ? this.sound : document.querySelector("video, main audio");
        if (media) media.paused ? media.play().catch(() => {}) : media.pause();
        return Boolean(media);
    },
};

/** True when a click is for this page alone, not for another window. */
const isPlain = (event) => !(event.ctrlKey || event.metaKey || event.shiftKey || event.altKey || event.button || event.defaultPrevented);

/** While something plays, pages are loaded into this one. */
async function follow(link) {
    const page = await load(link.href).catch(() => null);
    if (!page || !page.querySelector("main")) return void (location.href = link.href);
    show(page, link.href, "pushState");
    scrollTo(0, 0);
    document.getElementById("main").focus();
}

function clicked(event) {
    const on = event.target.closest("a, button");
    if (!on || !isPlain(event)) return;
    if (on.dataset.play) {
        event.preventDefault();
        const track = player.tracks[player.now];
        if (track && track.address === on.href) player.turn();
        else player.start(on);
    } else if (on.dataset.playAll !== undefined) {
        player.start(null, on.dataset.playAll === "shuffled");
    } else if (on.dataset.step) {
        player.play(player.now + Number(on.dataset.step));
    } else if (on.href && on.origin === location.origin && !on.pathname.startsWith("/file/") && !on.hash && player.isPlaying) {
        event.preventDefault();
        follow(on);
    }
}

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
    } else if (event.key === "ArrowDown" && on.id === "q") {
        const first = document.querySelector(".grid a, .photos a, .names a, .tracks a");
        if (first) event.preventDefault(), first.focus();
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

/** What belongs to the main part, when that has changed. */
function begin() {
    watchMore();
    player.mark();
    const hasTracks = document.querySelector("a[data-play]") !== null;
    all("[data-play-all]").forEach((button) => { button.hidden = !hasTracks; });
}

/** Back and forth between pages that were loaded into this one. */
async function turned() {
    if (place() === shown) return;
    const page = player.isPlaying ? await load(location.href).catch(() => null) : null;
    if (page && page.querySelector("main")) show(page);
    else location.reload();
}

document.addEventListener("keydown", pressed);
document.addEventListener("click", clicked);
document.addEventListener("visibilitychange", lookAtLive);
// Only one thing plays at a time.
document.addEventListener("play", (event) => all("audio, video").forEach((media) => media !== event.target && media.pause()), true);
addEventListener("popstate", turned);
setInterval(lookAtLive, 1000);
watchSearch();
begin();
