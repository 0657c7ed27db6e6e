// Making elements. Texts of neighbours only ever become text nodes.

// element("a", {href: "..", class: "x"}, "text", otherElement, null)
export function element(tag, properties = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (value === null || value === undefined || value === false) continue;
    made.setAttribute(name, value === true ? "" : value);
  }
  made.append(...children.filter(child => child !== null && child !== undefined));
  return made;
}

export const by = id => document.getElementById(id);

// Puts new children in the place of the old ones. What is the same stays the same node, found by its
// data-key where it has one: neither the focus nor a click that has begun is lost.
export function replace(parent, ...children) {
  const focused = document.activeElement;
  update(parent, children.filter(child => child !== null && child !== undefined));
  if (focused !== document.activeElement && parent.contains(focused)) focused.focus({preventScroll: true});
}

function update(parent, fresh) {
  const known = new Map([...parent.children].filter(child => child.dataset.key).map(child => [child.dataset.key, child]));
  let next = parent.firstChild;
  for (const child of fresh) {
    const node = typeof child === "string" ? document.createTextNode(child) : child;
    const key = node.dataset?.key;
    const old = key ? known.get(key) : next?.dataset?.key ? null : next;
    if (old?.nodeName !== node.nodeName) {
      parent.insertBefore(node, next);
      continue;
    }
    if (old === next) next = next.nextSibling;
    else parent.insertBefore(old, next);
    become(old, node);
  }
  while (next) {
    const after = next.nextSibling;
    next.remove();
    next = after;
  }
}

function become(old, node) {
  if (node.nodeType === Node.TEXT_NODE) {
    if (old.data !== node.data) old.data = node.data;
    return;
  }
  for (const {name} of [...old.attributes]) if (!node.hasAttribute(name) && name !== "open") old.removeAttribute(name);
  for (const {name, value} of node.attributes) if (old.getAttribute(name) !== value) old.setAttribute(name, value);
  update(old, [...node.childNodes]);
}

export function setText(id, text, title) {
  const place = by(id);
  if (place.textContent !== text) place.textContent = text;
  if (title !== undefined) place.title = title;
}
