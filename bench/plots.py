"""Plots as SVG, of bars and of lines, without any library."""

from xml.sax.saxutils import escape

COLOURS = ["#3465a4", "#cc6600", "#4e9a06", "#75507b", "#a40000", "#888a85"]
STYLE = 'font-family="sans-serif" font-size="13"'


def _text(x, y, text, anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}">{escape(text)}</text>'


def _write(path, title, width, height, parts):
    head = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" {STYLE}>'
            f'<rect width="100%" height="100%" fill="white"/>'
            f'<text x="10" y="20" font-weight="bold">{escape(title)}</text>')
    path.write_text(head + "\n" + "\n".join(parts) + "\n</svg>\n")


def bars(path, title, unit, values, marked=()):
    """Horizontal bars for pairs of a name and a value; the marked names have another colour."""
    left, width, step = 250, 760, 26
    scale = (width - left - 90) / (max(value for _, value in values) or 1)
    parts = []
    for i, (name, value) in enumerate(values):
        y = 36 + i * step
        colour = COLOURS[1] if name in marked else COLOURS[0]
        parts.append(f'<rect x="{left}" y="{y}" width="{value * scale:.1f}" height="{step - 8}" '
                     f'fill="{colour}"/>')
        parts.append(_text(left - 8, y + 14, name, "end"))
        parts.append(_text(left + value * scale + 6, y + 14, f"{value:.4g} {unit}"))
    _write(path, title, width, 46 + len(values) * step, parts)


def lines(path, title, x_label, y_label, series):
    """Lines through the points of each series: a dictionary of lists of pairs."""
    left, top, width, height = 80, 40, 760, 420
    right, bottom = width - 190, height - 50
    points = [point for line in series.values() for point in line]
    x_max = max(x for x, _ in points)
    y_max = max(y for _, y in points)

    def place(point):
        return (left + point[0] / x_max * (right - left),
                bottom - point[1] / y_max * (bottom - top))

    parts = [f'<path d="M{left},{top}V{bottom}H{right}" fill="none" stroke="black"/>',
             _text((left + right) / 2, height - 12, x_label, "middle"),
             _text(left - 8, top - 8, y_label)]
    for share in (0.25, 0.5, 0.75, 1):
        x, y = place((share * x_max, share * y_max))
        parts.append(_text(x, bottom + 18, f"{share * x_max:.4g}", "middle"))
        parts.append(_text(left - 8, y + 4, f"{share * y_max:.4g}", "end"))
    for i, (name, line) in enumerate(series.items()):
        colour = COLOURS[i % len(COLOURS)]
        path_of_line = " ".join(f"{x:.1f},{y:.1f}" for x, y in map(place, sorted(line)))
        parts.append(f'<polyline points="{path_of_line}" fill="none" stroke="{colour}" '
                     f'stroke-width="2"/>')
        parts.append(f'<rect x="{right + 12}" y="{top + i * 22}" width="14" height="4" '
                     f'fill="{colour}"/>')
        parts.append(_text(right + 32, top + i * 22 + 7, name))
    _write(path, title, width, height, parts)
