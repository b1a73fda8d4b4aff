"use strict";

// Sort the rows by the column of `head`, the other way round at the second click.
function sortBy(head) {
    const up = head.getAttribute("aria-sort") !== "ascending";
    const column = head.cellIndex;
    const rows = Array.from(head.closest("table").querySelectorAll("tr")).slice(1);
    const keys = new Map(rows.map(row => [row, parseFloat(row.cells[column].textContent)]));
    // What is no number (an object without pixels has no mean) comes last either way.
    const order = (a, b) => isNaN(a) ? (isNaN(b) ? 0 : 1) : isNaN(b) ? -1 : up ? a - b : b - a;
    rows.sort((a, b) => order(keys.get(a), keys.get(b)));
    const parent = rows.length ? rows[0].parentNode : null;
    for (const row of rows)
        parent.appendChild(row);
    for (const other of head.parentNode.cells)
        other.removeAttribute("aria-sort");
    head.setAttribute("aria-sort", up ? "ascending" : "descending");
}

// Show in the picture where the object of a row lies.
function mark(section, names, row) {
    const value = name => parseFloat(row.cells[names.indexOf(name)].textContent);
    const image = section.querySelector("img");
    const box = section.querySelector(".box");
    const across = 100 / image.naturalWidth, down = 100 / image.naturalHeight;
    box.style.display = value("area") > 0 ? "block" : "none";
    box.style.left = value("x0") * across + "%";
    box.style.top = value("y0") * down + "%";
    box.style.width = (value("x1") - value("x0") + 1) * across + "%";
    box.style.height = (value("y1") - value("y0") + 1) * down + "%";
}

for (const section of document.querySelectorAll("section")) {
    const heads = Array.from(section.querySelectorAll("th"));
    const names = heads.map(head => head.textContent);
    for (const head of heads) {
        head.tabIndex = 0;
        head.addEventListener("click", () => sortBy(head));
        head.addEventListener("keydown", event => { if (event.key === "Enter") sortBy(head); });
    }
    section.querySelector(".rows").addEventListener("mouseover", event => {
        const row = event.target.closest("tr");
        if (row && row.cells[0].tagName === "TD")
            mark(section, names, row);
    });
    section.querySelector("input").addEventListener("change", event =>
        section.classList.toggle("plain", !event.target.checked));
}
