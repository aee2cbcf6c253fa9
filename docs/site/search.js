/* SPDX-License-Identifier: MIT */
/* Search in the pages of this site, without a server: every word that was typed must be in a page. */
"use strict";
(function () {
    const query = document.getElementById("site-query");
    const results = document.getElementById("site-results");
    const root = document.body.dataset.root;
    const limit = 12;
    let chosen = -1;

    /* Higher is better; 0 is no match. */
    function rank(page, words) {
        const [title, , headings, , text] = page;
        const name = title.toLowerCase();
        let sum = 0;
        for (const word of words) {
            if (name === word || name.startsWith(word + "(")) sum += 100;
            else if (name.startsWith(word)) sum += 50;
            else if (name.includes(word)) sum += 25;
            else if (headings.includes(word)) sum += 10;
            else if (text.includes(word)) sum += 1;
            else return 0;
        }
        return sum;
    }

    function found(text) {
        const words = text.toLowerCase().split(/\s+/).filter((word) => word.length > 1);
        if (words.length === 0) return [];
        return searchIndex
            .map((page) => [rank(page, words), page])
            .filter(([value]) => value > 0)
            .sort((a, b) => b[0] - a[0] || a[1][0].length - b[1][0].length || a[1][0].localeCompare(b[1][0]))
            .slice(0, limit)
            .map(([, page]) => page);
    }

    function show() {
        const pages = found(query.value);
        chosen = -1;
        results.replaceChildren(...pages.map(([title, path, , summary]) => {
            const item = document.createElement("li");
            const link = document.createElement("a");
            const note = document.createElement("span");
            link.href = root + path;
            link.textContent = title;
            note.textContent = summary;
            link.append(note);
            item.append(link);
            return item;
        }));
        if (pages.length === 0 && query.value.trim().length > 1) {
            const item = document.createElement("li");
            item.textContent = "Nothing found.";
            results.append(item);
        }
        results.hidden = results.children.length === 0;
    }

    function choose(step) {
        const links = results.querySelectorAll("a");
        if (links.length === 0) return;
        chosen = (chosen + step + links.length) % links.length;
        links.forEach((link, place) => link.classList.toggle("chosen", place === chosen));
    }

    query.addEventListener("input", show);
    query.addEventListener("keydown", (event) => {
        const links = results.querySelectorAll("a");
        if (event.key === "ArrowDown") choose(1);
        else if (event.key === "ArrowUp") choose(-1);
        else if (event.key === "Enter" && links.length > 0) links[Math.max(chosen, 0)].click();
        else if (event.key === "Escape") { query.value = ""; show(); query.blur(); }
        else return;
        event.preventDefault();
    });
    document.addEventListener("keydown", (event) => {
        if (event.key === "/" && document.activeElement !== query) { query.focus(); event.preventDefault(); }
    });
    document.addEventListener("click", (event) => {
        if (!event.target.closest(".search")) results.hidden = true;
    });
})();
