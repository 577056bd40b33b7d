// Small inline SVG icons, drawn with the DOM so that no markup string is
// ever parsed. Each is decorative: the text beside it carries the meaning.

const SVG_NS = 'http://www.w3.org/2000/svg';

function Svg(className, children) {
  const svg = document.createElementNS(SVG_NS, 'svg');
  svg.setAttribute('viewBox', '0 0 16 16');
  svg.setAttribute('width', '16');
  svg.setAttribute('height', '16');
  svg.setAttribute('aria-hidden', 'true');
  svg.setAttribute('focusable', 'false');
  svg.setAttribute('class', 'icon ' + className);
  for (const [tag, attributes] of children) {
    const child = document.createElementNS(SVG_NS, tag);
    for (const [name, value] of Object.entries(attributes)) child.setAttribute(name, value);
    svg.append(child);
  }
  return svg;
}

const SHAPES = {
  // A circle with an "i".
  info: [
    ['circle', {cx: '8', cy: '8', r: '7.5', class: 'icon-fill'}],
    ['rect', {x: '7', y: '7', width: '2', height: '5', class: 'icon-mark'}],
    ['rect', {x: '7', y: '4', width: '2', height: '2', class: 'icon-mark'}],
  ],
  // A triangle with an "!".
  warning: [
    ['path', {d: 'M8 .8 15.6 14.6H.4Z', class: 'icon-fill'}],
    ['rect', {x: '7', y: '5', width: '2', height: '5', class: 'icon-mark'}],
    ['rect', {x: '7', y: '11', width: '2', height: '2', class: 'icon-mark'}],
  ],
  // An octagon with a cross.
  err: [
    ['path', {d: 'M5 .5h6L15.5 5v6L11 15.5H5L.5 11V5Z', class: 'icon-fill'}],
    ['path', {d: 'm5 5 6 6m0-6-6 6', class: 'icon-stroke'}],
  ],
  // A downward arrow beside a sorted heading.
  sortDown: [['path', {d: 'M8 13 3 7h10Z', class: 'icon-fill'}]],
  sortUp: [['path', {d: 'M8 3 3 9h10Z', class: 'icon-fill'}]],
  filter: [['path', {d: 'M2 3h12L9.5 8.5V13l-3-1.5v-3Z', class: 'icon-stroke'}]],
  refresh: [['path', {d: 'M13 8a5 5 0 1 1-1.5-3.6M13 2v3.5H9.5', class: 'icon-stroke'}]],
  download: [['path', {d: 'M8 2v8m-3.5-3.5L8 10l3.5-3.5M3 13.5h10', class: 'icon-stroke'}]],
  calendar: [['path', {d: 'M2.5 3.5h11v10h-11Zm0 3h11M5.5 2v3m5-3v3', class: 'icon-stroke'}]],
  menu: [['path', {d: 'M2.5 4h11m-11 4h11m-11 4h11', class: 'icon-stroke'}]],
  close: [['path', {d: 'M4.5 4.5l7 7m0-7-7 7', class: 'icon-stroke'}]],
  trash: [['path', {d: 'M3 4.5h10M6.5 4.5V3h3v1.5m-5 0 .7 9h5.6l.7-9', class: 'icon-stroke'}]],
};

export function Icon(name) {
  return Svg('icon-' + name, SHAPES[name]);
}
