"""Draws series of (x, y) points on two logarithmic axes, as an SVG file. Growth in proportion is a line of slope one."""

import math
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 760, 460
LEFT, RIGHT, TOP, BOTTOM = 70, 210, 40, 50
COLOURS = ("#1b6ca8", "#c0392b", "#2e8b57", "#8e44ad", "#d68910", "#34495e", "#16a085", "#7f8c8d")


def decades(values):
    """The powers of ten around the values."""
    low = math.floor(math.log10(min(values)))
    high = math.ceil(math.log10(max(values)))
    return low, max(high, low + 1)


def label(power):
    return f"{10 ** power:,}" if power >= 0 else f"{10 ** power:g}"


def write(path, title, x_title, y_title, series):
    xs = [x for _, points in series for x, _ in points]
    ys = [y for _, points in series for _, y in points]
    (x_low, x_high), (y_low, y_high) = decades(xs), decades(ys)

    def place(x, y):
        return (LEFT + (math.log10(x) - x_low) / (x_high - x_low) * (WIDTH - LEFT - RIGHT),
                HEIGHT - BOTTOM - (math.log10(y) - y_low) / (y_high - y_low) * (HEIGHT - TOP - BOTTOM))

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" '
           f'font-size="12"><rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
           f'<text x="{LEFT}" y="22" font-size="15">{escape(title)}</text>']
    for power in range(x_low, x_high + 1):
        x, _ = place(10 ** power, 10 ** y_low)
        out.append(f'<line x1="{x:.1f}" y1="{TOP}" x2="{x:.1f}" y2="{HEIGHT - BOTTOM}" stroke="#ddd"/>'
                   f'<text x="{x:.1f}" y="{HEIGHT - BOTTOM + 16}" text-anchor="middle">{label(power)}</text>')
    for power in range(y_low, y_high + 1):
        _, y = place(10 ** x_low, 10 ** power)
        out.append(f'<line x1="{LEFT}" y1="{y:.1f}" x2="{WIDTH - RIGHT}" y2="{y:.1f}" stroke="#ddd"/>'
                   f'<text x="{LEFT - 6}" y="{y + 4:.1f}" text-anchor="end">{label(power)}</text>')
    out.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 12}" text-anchor="middle">{escape(x_title)}</text>'
               f'<text x="16" y="{TOP - 8}">{escape(y_title)}</text>')
    for number, (name, points) in enumerate(series):
        colour = COLOURS[number % len(COLOURS)]
        line = " ".join("{:.1f},{:.1f}".format(*place(x, y)) for x, y in points)
        out.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
        out += ['<circle cx="{:.1f}" cy="{:.1f}" r="3" fill="{}"/>'.format(*place(x, y), colour) for x, y in points]
        y = TOP + 14 + 18 * number
        out.append(f'<rect x="{WIDTH - RIGHT + 14}" y="{y - 9}" width="10" height="10" fill="{colour}"/>'
                   f'<text x="{WIDTH - RIGHT + 30}" y="{y}">{escape(name)}</text>')
    path.write_text("\n".join(out + ["</svg>\n"]), encoding="utf-8")
