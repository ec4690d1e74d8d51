// The few things that every view does to the document. Text is always set as text, and only when it changed.

export function byId(id) {
  return document.getElementById(id);
}

/** A new element: element("td", {class: "value", role: "cell"}, child, "text", …). */
export function element(name, attributes = {}, ...children) {
  return filled(document.createElement(name), attributes, children);
}

const SVG = "http://www.w3.org/2000/svg";

export function svgElement(name, attributes = {}, ...children) {
  return filled(document.createElementNS(SVG, name), attributes, children);
}

function filled(node, attributes, children) {
  for (const [key, value] of Object.entries(attributes)) {
    node.setAttribute(key, value);
  }
  node.append(...children);
  return node;
}

export function icon(state) {
  return svgElement("svg", { class: "icon", width: 16, height: 16, "aria-hidden": "true" },
    svgElement("use", { href: `#icon-${state}` }));
}

export function setText(node, text) {
  if (node.textContent !== text) {
    node.textContent = text;
  }
}

export function setAttribute(node, name, value) {
  if (node.getAttribute(name) !== value) {
    node.setAttribute(name, value);
  }
}

/** Shows the exact moment to who points at it; none takes the title away. */
export function setTitle(node, text) {
  if (text) {
    setAttribute(node, "title", text);
  } else {
    node.removeAttribute("title");
  }
}

export function show(node, visible) {
  if (node.hidden === visible) {
    node.hidden = !visible;
  }
}

export function setProgress(bar, samples, of) {
  const share = Math.max(0, Math.min(1, of > 0 ? samples / of : 0));
  setAttribute(bar, "aria-valuemin", "0");
  setAttribute(bar, "aria-valuemax", String(of));
  setAttribute(bar, "aria-valuenow", String(Math.min(samples, of)));
  setAttribute(bar, "aria-valuetext", `${samples} of ${of} samples`);
  bar.firstElementChild.style.width = `${(share * 100).toFixed(1)}%`;
}

/**
 * Brings the children of a list into the order of the keys, making and removing only what came and went, so that
 * what a reader has focused or scrolled to stays. Returns the entries in order.
 */
export function arrange(parent, entries, keys, make) {
  const focused = document.activeElement;
  const wanted = new Set(keys);
  for (const [key, entry] of entries) {
    if (!wanted.has(key)) {
      entry.root.remove();
      entries.delete(key);
    }
  }
  let place = parent.firstElementChild;
  const ordered = keys.map((key) => {
    if (!entries.has(key)) {
      entries.set(key, make(key));
    }
    const entry = entries.get(key);
    if (entry.root === place) {
      place = place.nextElementSibling;
    } else {
      parent.insertBefore(entry.root, place);
    }
    return entry;
  });
  if (focused && focused !== document.activeElement && parent.contains(focused)) {
    focused.focus({ preventScroll: true });
  }
  return ordered;
}
