// The timeline above the table: the matches of the current filters in time
// buckets, stacked by level. Clicking a bar, or dragging across bars, narrows
// the time range to them. Drawn as SVG with the DOM; heights are attributes,
// so no style is set inline.

import {LEVELS} from './catalogue.js';
import {FormatNumber, T} from './i18n.js';

const SVG_NS = 'http://www.w3.org/2000/svg';
const HEIGHT = 60;
const BAR = 10;  // viewBox units per bucket; the bar leaves a gap of 2

function Element(tag, attributes = {}) {
  const element = document.createElementNS(SVG_NS, tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, String(value));
  return element;
}

export class Timeline {
  // `onRange(fromSeconds, toSeconds)` receives the range chosen on the chart;
  // `describe(seconds)` gives a time as the page shows it.
  constructor(container, onRange, describe) {
    this.container = container;
    this.onRange = onRange;
    this.describe = describe;
    this.histogram = null;
    this.drag = null;
  }

  // Draws `histogram` ({from, to, bucket, counts}); null hides the chart.
  Show(histogram) {
    this.histogram = histogram;
    const counts = histogram ? histogram.counts : [];
    this.container.hidden = !histogram || counts.length === 0;
    if (this.container.hidden) {
      this.container.replaceChildren();
      return;
    }
    const peak = Math.max(1, ...counts.map(([, ...levels]) => levels.reduce((a, b) => a + b, 0)));
    const total = counts.reduce((sum, [, ...levels]) => sum + levels.reduce((a, b) => a + b, 0), 0);
    const svg = Element('svg', {
      viewBox: `0 0 ${counts.length * BAR} ${HEIGHT}`,
      preserveAspectRatio: 'none',
      class: 'timeline-chart',
      role: 'img',
      'aria-label': T('timeline.label', {
        count: FormatNumber(total),
        from: this.describe(histogram.from),
        to: this.describe(histogram.to),
      }),
    });
    counts.forEach(([start, ...levels], index) => {
      const group = Element('g', {class: 'bucket', 'data-index': index});
      const title = Element('title');
      const sum = levels.reduce((a, b) => a + b, 0);
      title.textContent = T('timeline.bar', {
        from: this.describe(start),
        to: this.describe(start + histogram.bucket - 1),
        count: FormatNumber(sum),
      });
      group.append(title);
      // A full-height target so that a bucket with few entries is easy to hit.
      group.append(Element('rect', {x: index * BAR, y: 0, width: BAR, height: HEIGHT,
                                    class: 'bucket-hit'}));
      let top = HEIGHT;
      LEVELS.forEach((level, i) => {
        const height = (levels[i] / peak) * (HEIGHT - 2);
        if (height <= 0) return;
        top -= height;
        group.append(Element('rect', {x: index * BAR + 1, y: top, width: BAR - 2, height,
                                      class: 'bar bar-' + level.name}));
      });
      svg.append(group);
    });
    svg.addEventListener('pointerdown', (event) => this.Begin(event));
    svg.addEventListener('pointermove', (event) => this.Move(event));
    svg.addEventListener('pointerup', (event) => this.End(event));
    svg.addEventListener('pointercancel', () => this.Cancel());
    this.svg = svg;
    const scale = document.createElement('div');
    scale.className = 'timeline-scale';
    const first = document.createElement('span');
    first.textContent = this.describe(histogram.from);
    const last = document.createElement('span');
    last.textContent = this.describe(histogram.to);
    scale.append(first, last);
    const hint = document.createElement('p');
    hint.className = 'timeline-hint';
    hint.textContent = T('timeline.hint');
    this.container.replaceChildren(svg, scale, hint);
  }

  IndexAt(event) {
    const box = this.svg.getBoundingClientRect();
    const count = this.histogram.counts.length;
    const index = Math.floor(((event.clientX - box.left) / box.width) * count);
    return Math.min(count - 1, Math.max(0, index));
  }

  Begin(event) {
    if (event.button !== 0) return;
    this.svg.setPointerCapture(event.pointerId);
    const index = this.IndexAt(event);
    this.drag = {first: index, last: index};
    this.Mark();
  }

  Move(event) {
    if (!this.drag) return;
    this.drag.last = this.IndexAt(event);
    this.Mark();
  }

  End(event) {
    if (!this.drag) return;
    this.drag.last = this.IndexAt(event);
    const low = Math.min(this.drag.first, this.drag.last);
    const high = Math.max(this.drag.first, this.drag.last);
    this.drag = null;
    const {counts, bucket} = this.histogram;
    this.onRange(counts[low][0], Math.min(counts[high][0] + bucket - 1, this.histogram.to));
  }

  Cancel() {
    this.drag = null;
    this.Mark();
  }

  // Shows the buckets being selected.
  Mark() {
    const low = this.drag ? Math.min(this.drag.first, this.drag.last) : -1;
    const high = this.drag ? Math.max(this.drag.first, this.drag.last) : -1;
    for (const group of this.svg.querySelectorAll('g.bucket')) {
      const index = Number(group.dataset.index);
      group.classList.toggle('selected', index >= low && index <= high);
    }
  }
}
