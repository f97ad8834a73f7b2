"""The picture of bench/table.py: how many times as long as qrftp the other programs take, a line for each work."""
import html
import math

COLOURS = {"sftp": "#222222", "lftp": "#009e73", "rclone": "#cc79a7", "curl": "#0072b2"}
LEFT, WIDTH, LINE, TOP = 400, 900, 22, 60


def draw(lines):
    """The SVG for a list of (title, {program: times})."""
    highest = max([times for _, others in lines for times in others.values()] + [2])
    lowest = min([times for _, others in lines for times in others.values()] + [0.5])
    scale = (WIDTH - LEFT - 30) / math.log(highest / lowest)
    bottom = TOP + LINE * len(lines)

    def x(times):
        return LEFT + 10 + scale * math.log(times / lowest)

    def text(left, top, words, anchor="start", colour="#222222"):
        return f'<text x="{left:.1f}" y="{top}" text-anchor="{anchor}" fill="{colour}">{html.escape(words)}</text>'

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {bottom + 30}" font-family="sans-serif" '
             'font-size="12">', f'<rect width="{WIDTH}" height="{bottom + 30}" fill="white"/>',
             text(LEFT + 10, 20, "Time, as a multiple of qrftp's (1: as fast as qrftp; farther right: slower)")]
    for number, (program, colour) in enumerate(COLOURS.items()):
        parts += [f'<circle cx="{LEFT + 14 + 80 * number}" cy="36" r="5" fill="{colour}"/>',
                  text(LEFT + 24 + 80 * number, 40, program, colour=colour)]
    for tick in (0.5, 1, 2, 5, 10, 20, 50, 100, 200):
        if lowest <= tick <= highest:
            stroke = 'stroke="#d55e00" stroke-width="2"' if tick == 1 else 'stroke="#dddddd"'
            parts += [f'<line x1="{x(tick):.1f}" x2="{x(tick):.1f}" y1="{TOP - 8}" y2="{bottom}" {stroke}/>',
                      text(x(tick), bottom + 18, f"{tick:g}", "middle")]
    for number, (title, others) in enumerate(lines):
        middle = TOP + LINE * number + LINE // 2 - 4
        parts.append(text(LEFT, middle + 4, title, "end"))
        parts += [f'<circle cx="{x(times):.1f}" cy="{middle}" r="5" fill="{COLOURS[program]}" fill-opacity="0.85"/>'
                  for program, times in others.items()]
    return "\n".join(parts + ["</svg>"]) + "\n"
