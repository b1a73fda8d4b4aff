"use strict";

const orange = "#ff9a1f", blue = "#00c8ff", rowHeight = 28;

function element(name, attributes, ...children) {
    const result = document.createElement(name);
    for (const [key, value] of Object.entries(attributes || {}))
        result.setAttribute(key, value);
    result.append(...children);
    return result;
}

// A number to read: 6 digits, whole numbers as they are.
function shown(value) {
    if (value === null || Number.isNaN(value))
        return "";
    return Number.isInteger(value) ? String(value) : String(Number(value.toPrecision(6)));
}

// The greatest of 1, 2, 5, 10, 20 ... up to a number.
function roundDown(value) {
    const power = 10 ** Math.floor(Math.log10(value));
    return [5, 2, 1].find(step => step * power <= value * 1.0000001) * power;
}

// A canvas with as many pixels as the screen has below it; returns its context, in CSS pixels.
function prepare(canvas) {
    const ratio = window.devicePixelRatio || 1;
    const {width, height} = canvas.getBoundingClientRect();
    canvas.width = Math.max(1, Math.round(width * ratio));
    canvas.height = Math.max(1, Math.round(height * ratio));
    const context = canvas.getContext("2d");
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    return {context, width, height};
}

// Call a function at most once a frame.
function perFrame(work) {
    let waiting = false;
    return () => {
        if (waiting)
            return;
        waiting = true;
        requestAnimationFrame(() => { waiting = false; work(); });
    };
}

// The corners of a closed line, x and y of each, of its first corner and the steps from one to the
// next, by turns up or down and to the side.
function corners([x, y, ...steps]) {
    const result = [x, y];
    steps.forEach((step, i) => {
        if (i % 2 === 0)
            y += step;
        else
            x += step;
        result.push(x, y);
    });
    return result;
}

// The numbers of a section, and which of its objects is selected.
class Model {
    constructor(data) {
        Object.assign(this, data);
        this.outlines = data.outlines.map(loops => loops.map(corners));
        this.count = data.outlines.length;
        this.names = data.columns.map(column => column.name);
        this.boxes = this.outlines.map(loops => {
            const box = [Infinity, Infinity, -Infinity, -Infinity];
            for (const loop of loops)
                for (let i = 0; i < loop.length; i += 2) {
                    box[0] = Math.min(box[0], loop[i]);
                    box[1] = Math.min(box[1], loop[i + 1]);
                    box[2] = Math.max(box[2], loop[i]);
                    box[3] = Math.max(box[3], loop[i + 1]);
                }
            return box;
        });
        const sizes = this.boxes.map(([x0, y0, x1, y1]) => x1 - x0 + y1 - y0).sort((a, b) => a - b);
        this.typicalSize = (sizes[sizes.length >> 1] || 0) / 2;
        this.selected = -1;
        this.listeners = [];
    }
    title(column) {
        const {name, unit} = this.columns[column];
        return unit ? name + " (" + unit + ")" : name;
    }
    select(row, from) {
        this.selected = row;
        for (const listener of this.listeners)
            listener(from);
    }
    // The object around a point of the picture, or the nearest one within `reach`; -1 of none.
    at(x, y, reach) {
        let best = -1, bestDistance = Infinity, bestSize = Infinity;
        for (let row = 0; row < this.count; ++row) {
            const [x0, y0, x1, y1] = this.boxes[row];
            if (x < x0 - reach || y < y0 - reach || x > x1 + reach || y > y1 + reach)
                continue;
            const inside = isInside(this.outlines[row], x, y);
            const distance = inside ? 0 : Math.hypot(Math.max(x0 - x, 0, x - x1),
                                                     Math.max(y0 - y, 0, y - y1)) + 1e-6;
            const size = (x1 - x0) * (y1 - y0);
            if (distance < bestDistance || (distance === bestDistance && size < bestSize)) {
                best = row;
                bestDistance = distance;
                bestSize = size;
            }
        }
        return best;
    }
}

// Whether a point has an odd number of upright edges to its right.
function isInside(loops, x, y) {
    let inside = false;
    for (const loop of loops)
        for (let i = 0, j = loop.length - 2; i < loop.length; j = i, i += 2)
            if (loop[i + 1] > y !== loop[j + 1] > y && x < loop[i])
                inside = !inside;
    return inside;
}

// The picture, to be moved and zoomed, with the outlines as lines.
class PictureView {
    constructor(model) {
        this.model = model;
        this.outlined = true;
        this.canvas = element("canvas", {tabindex: 0, "aria-label": "The picture and its objects"});
        this.bar = element("div", {class: "scalebar"});
        const button = (text, label, action) => {
            const result = element("button", {type: "button", "aria-label": label}, text);
            result.addEventListener("click", action);
            return result;
        };
        this.root = element("div", {class: "picture"}, this.canvas, this.bar,
            element("div", {class: "buttons"},
                button("+", "zoom in", () => this.zoomBy(1.6)),
                button("\u2212", "zoom out", () => this.zoomBy(1 / 1.6)),
                button("fit", "show all", () => this.fit())));
        this.image = new Image();
        this.draw = perFrame(() => this.drawNow());
        this.image.addEventListener("load", this.draw);
        this.image.src = model.png;
        model.listeners.push(from => { if (from !== this) this.show(); this.draw(); });
        this.listen();
    }
    fit() {
        const {width, height} = this.canvas.getBoundingClientRect();
        this.zoom = Math.min(width / this.model.width, height / this.model.height) || 1;
        this.least = this.zoom / 2;
        this.x = (width - this.model.width * this.zoom) / 2;
        this.y = (height - this.model.height * this.zoom) / 2;
        this.draw();
    }
    zoomBy(by, at) {
        const {width, height} = this.canvas.getBoundingClientRect();
        const [x, y] = at || [width / 2, height / 2];
        const zoom = Math.min(Math.max(this.zoom * by, this.least), 128);
        this.x = x - (x - this.x) * zoom / this.zoom;
        this.y = y - (y - this.y) * zoom / this.zoom;
        this.zoom = zoom;
        this.draw();
    }
    // Bring the selected object into sight.
    show() {
        const box = this.model.boxes[this.model.selected];
        if (!box || box[0] === Infinity)
            return;
        const {width, height} = this.canvas.getBoundingClientRect();
        const x = (box[0] + box[2]) / 2 * this.zoom, y = (box[1] + box[3]) / 2 * this.zoom;
        if (x + this.x < 20 || y + this.y < 20 || x + this.x > width - 20 ||
            y + this.y > height - 20) {
            this.x = width / 2 - x;
            this.y = height / 2 - y;
        }
    }
    place(event) {
        const box = this.canvas.getBoundingClientRect();
        return [event.clientX - box.left, event.clientY - box.top];
    }
    listen() {
        const pointers = new Map();
        let moved = 0;
        const spread = () => {
            const [a, b] = [...pointers.values()];
            return Math.hypot(a[0] - b[0], a[1] - b[1]);
        };
        this.canvas.addEventListener("pointerdown", event => {
            if (event.isTrusted)
                this.canvas.setPointerCapture(event.pointerId);
            if (pointers.size === 0)
                moved = 0;
            pointers.set(event.pointerId, this.place(event));
        });
        this.canvas.addEventListener("pointermove", event => {
            const before = pointers.get(event.pointerId);
            if (!before)
                return;
            const now = this.place(event);
            const apart = pointers.size === 2 ? spread() : 0;
            pointers.set(event.pointerId, now);
            const dx = now[0] - before[0], dy = now[1] - before[1];
            moved += Math.abs(dx) + Math.abs(dy);
            this.x += dx / pointers.size;
            this.y += dy / pointers.size;
            if (apart > 0) {
                const [a, b] = [...pointers.values()];
                this.zoomBy(spread() / apart, [(a[0] + b[0]) / 2, (a[1] + b[1]) / 2]);
            }
            this.root.classList.toggle("dragged", moved > 5);
            this.draw();
        });
        const end = event => {
            pointers.delete(event.pointerId);
            this.root.classList.remove("dragged");
        };
        this.canvas.addEventListener("pointercancel", end);
        this.canvas.addEventListener("pointerup", event => {
            end(event);
            if (moved <= 5)
                this.pick(this.place(event));
        });
        this.canvas.addEventListener("wheel", event => {
            event.preventDefault();
            this.zoomBy(Math.exp(-event.deltaY / 400), this.place(event));
        }, {passive: false});
        this.canvas.addEventListener("keydown", event => {
            if (event.key === "+" || event.key === "-")
                this.zoomBy(event.key === "+" ? 1.6 : 1 / 1.6);
        });
    }
    pick([x, y]) {
        this.model.select(this.model.at((x - this.x) / this.zoom, (y - this.y) / this.zoom,
                                        6 / this.zoom), this);
    }
    trace(context, row) {
        const [x0, y0, x1, y1] = this.model.boxes[row];
        if ((x1 - x0 + y1 - y0) * this.zoom < 5) { // too small to have a shape
            context.rect(x0, y0, x1 - x0, y1 - y0);
            return;
        }
        for (const loop of this.model.outlines[row]) {
            context.moveTo(loop[0], loop[1]);
            for (let i = 2; i < loop.length; i += 2)
                context.lineTo(loop[i], loop[i + 1]);
            context.closePath();
        }
    }
    drawNow() {
        const {context, width, height} = prepare(this.canvas);
        const {model, zoom} = this;
        context.translate(this.x, this.y);
        context.scale(zoom, zoom);
        if (this.image.complete && this.image.naturalWidth) {
            context.imageSmoothingEnabled = zoom < 1;
            context.drawImage(this.image, 0, 0, model.width, model.height);
        }
        const left = -this.x / zoom, top = -this.y / zoom;
        const right = left + width / zoom, bottom = top + height / zoom;
        // Lines around many small objects leave room for what is inside.
        context.lineWidth = Math.min(Math.max(this.model.typicalSize * zoom / 15, 0.3), 1.3) / zoom;
        context.strokeStyle = orange;
        // A few at a time: the time for one path grows with the square of its size.
        const atOnce = 20;
        let traced = 0;
        context.beginPath();
        for (let row = 0; this.outlined && row < model.count; ++row) {
            const [x0, y0, x1, y1] = model.boxes[row];
            if (x0 > right || y0 > bottom || x1 < left || y1 < top)
                continue;
            this.trace(context, row);
            if (++traced % atOnce === 0) {
                context.stroke();
                context.beginPath();
            }
        }
        context.stroke();
        if (model.selected >= 0) {
            context.beginPath();
            this.trace(context, model.selected);
            context.fillStyle = "rgba(0, 200, 255, .3)";
            context.fill("evenodd");
            context.strokeStyle = blue;
            context.lineWidth = 2.5 / zoom;
            context.stroke();
        }
        this.drawBar(width);
    }
    drawBar(width) {
        const scale = this.model.scale;
        this.bar.hidden = !scale;
        if (!scale)
            return;
        const length = roundDown(width / 4 / this.zoom * scale.x);
        this.bar.style.width = length / scale.x * this.zoom + "px";
        this.bar.textContent = shown(length) + " " + scale.unit.replace(/^um$/, "\u00b5m");
    }
}

// Axes around a plot: ticks at round numbers, and as much room as their texts need.
class Axes {
    constructor(canvas, xRange, yRange, xTitle, yTitle, yText = shown) {
        const {context, width, height} = prepare(canvas);
        this.context = context;
        context.font = "12px system-ui, sans-serif";
        context.clearRect(0, 0, width, height);
        const widen = ([low, high]) => low < high ? [low, high] : [low - 0.5, high + 0.5];
        [this.x0, this.x1] = widen(xRange);
        [this.y0, this.y1] = widen(yRange);
        const yTicks = this.ticks(this.y0, this.y1, 4), xTicks = this.ticks(this.x0, this.x1, 5);
        const widest = Math.max(...yTicks.map(y => context.measureText(yText(y)).width));
        const lastHalf = Math.max(...xTicks.map(x => context.measureText(shown(x)).width)) / 2;
        this.left = widest + 28;
        this.right = width - lastHalf - 4;
        this.top = 10;
        this.bottom = height - 38;
        context.fillStyle = "#556";
        context.strokeStyle = "#e3e6ea";
        context.textBaseline = "middle";
        context.textAlign = "right";
        for (const y of yTicks) {
            context.fillText(yText(y), this.left - 6, this.py(y));
            this.line(this.left, this.py(y), this.right, this.py(y));
        }
        context.textAlign = "center";
        for (const x of xTicks)
            context.fillText(shown(x), this.px(x), this.bottom + 11);
        context.fillStyle = "#222";
        context.fillText(xTitle, (this.left + this.right) / 2, height - 9,
                         this.right - this.left);
        context.save();
        context.translate(8, (this.top + this.bottom) / 2);
        context.rotate(-Math.PI / 2);
        context.fillText(yTitle, 0, 0, this.bottom - this.top);
        context.restore();
    }
    ticks(low, high, count) {
        const step = roundDown((high - low) / count);
        const result = [];
        for (let k = Math.ceil(low / step); k * step <= high && result.length < 20; ++k)
            result.push(k * step);
        return result;
    }
    px(x) { return this.left + (x - this.x0) / (this.x1 - this.x0) * (this.right - this.left); }
    py(y) { return this.bottom - (y - this.y0) / (this.y1 - this.y0) * (this.bottom - this.top); }
    line(x0, y0, x1, y1) {
        this.context.beginPath();
        this.context.moveTo(x0, y0);
        this.context.lineTo(x1, y1);
        this.context.stroke();
    }
    columns(low, high, heights) {
        const step = (high - low) / heights.length;
        this.context.fillStyle = "#4a7fb5";
        heights.forEach((h, i) => {
            const x = this.px(low + i * step), next = this.px(low + (i + 1) * step);
            const y = this.py(h);
            this.context.fillRect(x, y, Math.max(next - x - 0.5, 0.5), this.bottom - y);
        });
    }
}

function rangeOf(values) {
    let low = Infinity, high = -Infinity;
    for (const value of values)
        if (value !== null) {
            low = Math.min(low, value);
            high = Math.max(high, value);
        }
    return low <= high ? [low, high] : [0, 1];
}

function chooser(model, label, wanted, change) {
    const select = element("select", {"aria-label": label});
    model.names.forEach((name, i) => select.append(element("option", {value: i}, name)));
    const index = model.names.indexOf(wanted);
    select.value = index < 0 ? Math.min(1, model.names.length - 1) : index;
    select.addEventListener("change", change);
    return select;
}

class Scatter {
    constructor(model) {
        this.model = model;
        this.canvas = element("canvas", {"aria-label": "Scatter plot"});
        this.draw = perFrame(() => this.drawNow());
        this.x = chooser(model, "x axis of the scatter plot", "area", this.draw);
        this.y = chooser(model, "y axis of the scatter plot", "mean", this.draw);
        this.root = element("div", {class: "chart"},
            element("div", {class: "choose"}, this.y, "against", this.x), this.canvas);
        model.listeners.push(this.draw);
        this.canvas.addEventListener("click", event => this.pick(event));
    }
    drawNow() {
        const {model} = this;
        const xs = model.cells[this.x.value], ys = model.cells[this.y.value];
        const axes = this.axes = new Axes(this.canvas, rangeOf(xs), rangeOf(ys),
                                          model.title(this.x.value), model.title(this.y.value));
        const dot = (row, size) => {
            if (xs[row] !== null && ys[row] !== null)
                axes.context.fillRect(axes.px(xs[row]) - size / 2, axes.py(ys[row]) - size / 2,
                                      size, size);
        };
        axes.context.fillStyle = model.count > 2000 ? "rgba(74, 127, 181, .5)" : "#4a7fb5";
        for (let row = 0; row < model.count; ++row)
            dot(row, model.count > 2000 ? 2 : 4);
        axes.context.fillStyle = "#d33";
        if (model.selected >= 0)
            dot(model.selected, 8);
    }
    pick(event) {
        const box = this.canvas.getBoundingClientRect();
        const x = event.clientX - box.left, y = event.clientY - box.top;
        const xs = this.model.cells[this.x.value], ys = this.model.cells[this.y.value];
        let best = -1, least = 12;
        for (let row = 0; row < this.model.count; ++row) {
            const distance = Math.hypot(this.axes.px(xs[row]) - x, this.axes.py(ys[row]) - y);
            if (distance < least) {
                best = row;
                least = distance;
            }
        }
        this.model.select(best, this);
    }
}

class Histogram {
    constructor(model) {
        this.model = model;
        this.canvas = element("canvas", {"aria-label": "Histogram"});
        this.draw = perFrame(() => this.drawNow());
        this.column = chooser(model, "column of the histogram", "area", this.draw);
        this.root = element("div", {class: "chart"},
            element("div", {class: "choose"}, "histogram of", this.column), this.canvas);
    }
    drawNow() {
        const values = this.model.cells[this.column.value].filter(value => value !== null);
        const [low, high] = rangeOf(values);
        const bins = new Array(Math.max(1, Math.min(60, Math.ceil(Math.sqrt(values.length)))));
        bins.fill(0);
        for (const value of values)
            ++bins[Math.min(bins.length - 1,
                            high > low ? Math.floor((value - low) / (high - low) * bins.length)
                                       : 0)];
        const axes = new Axes(this.canvas, [low, high], [0, Math.max(1, ...bins)],
                              this.model.title(this.column.value), "objects");
        axes.columns(axes.x0, axes.x1, bins);
    }
}

// How often each value of the picture occurs, on a logarithmic axis, and the threshold.
class ValueHistogram {
    constructor(model) {
        this.model = model;
        this.canvas = element("canvas", {"aria-label": "Histogram of the picture's values"});
        this.draw = perFrame(() => this.drawNow());
        this.root = element("div", {class: "chart"}, this.canvas);
    }
    drawNow() {
        const {low, high, counts, threshold} = this.model.values;
        const log = counts.map(count => count > 0 ? Math.log10(count) + 0.1 : 0);
        const title = threshold === null ? "value" : "value, threshold " + shown(threshold);
        const axes = new Axes(this.canvas, [low, high], [0, Math.max(1, Math.ceil(Math.max(...log)))],
                              title, "pixels", y => shown(10 ** y));
        axes.columns(axes.x0, axes.x1, log);
        if (threshold === null)
            return;
        axes.context.strokeStyle = "#ff7a00";
        axes.context.lineWidth = 2;
        const x = axes.px(Math.min(Math.max(threshold, axes.x0), axes.x1));
        axes.line(x, axes.top, x, axes.bottom);
    }
}

// A table of which only the rows in sight are in the document.
class TableView {
    constructor(model) {
        this.model = model;
        this.order = Array.from({length: model.count}, (_, i) => i);
        this.heads = model.columns.map((column, i) => {
            const head = element("th", {tabindex: 0, scope: "col"}, column.name);
            if (column.unit)
                head.append(" ", element("small", {}, column.unit));
            head.addEventListener("click", () => this.sort(i));
            head.addEventListener("keydown",
                                  event => { if (event.key === "Enter") this.sort(i); });
            return head;
        });
        this.body = element("tbody");
        this.root = element("div", {class: "rows", tabindex: 0, "data-objects": model.count},
            element("table", {"aria-rowcount": model.count + 1},
                    element("thead", {}, element("tr", {}, ...this.heads)), this.body));
        this.draw = perFrame(() => this.drawNow());
        this.root.addEventListener("scroll", this.draw);
        this.body.addEventListener("click", event => {
            const row = event.target.closest("tr[data-row]");
            if (row)
                model.select(Number(row.dataset.row), this);
        });
        model.listeners.push(from => { if (from !== this) this.show(); this.draw(); });
    }
    // By a column, the other way round at the second click. What is no number comes last.
    sort(column) {
        const head = this.heads[column];
        const up = head.getAttribute("aria-sort") !== "ascending";
        const keys = this.model.cells[column];
        this.order.sort((a, b) => {
            const x = keys[a], y = keys[b];
            if (x === null || y === null)
                return (x === null) - (y === null) || a - b;
            return (up ? x - y : y - x) || a - b;
        });
        for (const other of this.heads)
            other.removeAttribute("aria-sort");
        head.setAttribute("aria-sort", up ? "ascending" : "descending");
        this.drawNow();
    }
    show() {
        const place = this.order.indexOf(this.model.selected);
        const height = this.root.clientHeight - rowHeight;
        const top = place * rowHeight;
        if (place >= 0 &&
            (top < this.root.scrollTop || top + rowHeight > this.root.scrollTop + height))
            this.root.scrollTop = Math.max(0, top - height / 2);
    }
    drawNow() {
        const more = 15;
        const first = Math.max(0, Math.floor(this.root.scrollTop / rowHeight) - more);
        const last = Math.min(this.model.count,
                              first + Math.ceil(this.root.clientHeight / rowHeight) + 2 * more);
        const space = rows => {
            const cell = element("td", {colspan: this.heads.length});
            cell.style.height = rows * rowHeight + "px";
            return element("tr", {class: "space"}, cell);
        };
        const rows = [space(first)];
        for (let place = first; place < last; ++place) {
            const row = this.order[place];
            rows.push(element("tr", {"data-row": row, "aria-rowindex": place + 2,
                                     "aria-selected": row === this.model.selected},
                ...this.model.cells.map(cells => element("td", {}, shown(cells[row])))));
        }
        rows.push(space(this.model.count - last));
        this.body.replaceChildren(...rows);
    }
}

function build(section) {
    const model = new Model(JSON.parse(section.querySelector("script").textContent));
    const picture = new PictureView(model), table = new TableView(model);
    const charts = [new Scatter(model), new Histogram(model), new ValueHistogram(model)];
    const outlines = element("input", {type: "checkbox"});
    outlines.checked = true;
    outlines.addEventListener("change", () => {
        picture.outlined = outlines.checked;
        picture.draw();
    });
    const scale = model.scale ? `, ${shown(model.scale.x)} x ${shown(model.scale.y)} ` +
        `${model.scale.unit} a pixel from ${model.scale.source}` : "";
    section.append(
        element("p", {class: "facts"}, `${model.width} x ${model.height} pixels${scale}, ` +
                `${model.count} objects. `, element("label", {}, outlines, " outlines")),
        element("div", {class: "views"}, picture.root,
                element("div", {class: "side"}, ...charts.map(chart => chart.root))),
        table.root);
    const draw = () => [picture, table, ...charts].forEach(view => view.draw());
    picture.fit(); // before anything asks for its zoom
    new ResizeObserver(draw).observe(section);
    section.model = model;
    section.picture = picture;
    draw();
}

document.querySelectorAll("section").forEach(build);
