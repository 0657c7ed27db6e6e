// Making elements. Texts of neighbours only ever become text nodes.

// element("a", {href: "..", class: "x", onclick: f}, "text", otherElement, null)
export function element(tag, properties = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (value === null || value === undefined || value === false) continue;
    if (name.startsWith("on")) made.addEventListener(name.slice(2), value);
    else made.setAttribute(name, value === true ? "" : value);
  }
  made.append(...children.filter(child => child !== null && child !== undefined));
  return made;
}

export const by = id => document.getElementById(id);

// Puts new children in the place of the old ones; what had the keyboard's focus has it again.
export function replace(parent, ...children) {
  const focused = parent.contains(document.activeElement) && document.activeElement.dataset.focus;
  parent.replaceChildren(...children.filter(child => child !== null && child !== undefined));
  if (focused) parent.querySelector(`[data-focus="${CSS.escape(focused)}"]`)?.focus({preventScroll: true});
}

export function setText(id, text, title) {
  const place = by(id);
  if (place.textContent !== text) place.textContent = text;
  if (title !== undefined) place.title = title;
}
