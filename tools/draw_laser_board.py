#!/usr/bin/env python3
"""Draws the wiring of the laser board, docs/pictures/laser-board.svg, on standard output.

    python3 tools/draw_laser_board.py > docs/pictures/laser-board.svg

Coordinates are pixels, x to the right and y down. A part is drawn from one end to the other, with
its value beside it.
"""
from math import hypot

WIDTH, HEIGHT = 1060, 760
shapes = []


def line(*points):
    path = " ".join(f"{x:g},{y:g}" for x, y in points)
    shapes.append(f'<polyline points="{path}"/>')


def text(x, y, words, anchor="start", kind="value"):
    words = words.replace("&", "&amp;").replace("<", "&lt;")
    shapes.append(f'<text x="{x:g}" y="{y:g}" text-anchor="{anchor}" class="{kind}">{words}</text>')


def box(x, y, width, height, title, *details):
    shapes.append(f'<rect x="{x}" y="{y}" width="{width}" height="{height}" rx="6" class="box"/>')
    text(x + width / 2, y + 22, title, "middle", "title")
    for number, detail in enumerate(details):
        text(x + width / 2, y + 42 + 18 * number, detail, "middle")


def dot(x, y):
    shapes.append(f'<circle cx="{x:g}" cy="{y:g}" r="3.5" class="dot"/>')


def ground(x, y):
    line((x, y), (x, y + 8))
    for number, half in enumerate((12, 8, 4)):
        line((x - half, y + 8 + 5 * number), (x + half, y + 8 + 5 * number))


def supply(x, y, words="+5 V"):
    line((x, y), (x, y - 8))
    line((x - 9, y - 8), (x + 9, y - 8))
    text(x, y - 14, words, "middle")


def part(start, end, length, words, body):
    """The two wires of a part whose body has that length, and its value."""
    (x1, y1), (x2, y2) = start, end
    whole = hypot(x2 - x1, y2 - y1)
    ux, uy = (x2 - x1) / whole, (y2 - y1) / whole
    wire = (whole - length) / 2
    line(start, (x1 + ux * wire, y1 + uy * wire))
    line((x2 - ux * wire, y2 - uy * wire), end)
    middle_x, middle_y = (x1 + x2) / 2, (y1 + y2) / 2
    body(middle_x, middle_y, ux, uy)
    if abs(ux) > 0.5:
        text(middle_x, middle_y - 14, words, "middle")
    else:
        text(middle_x + 16, middle_y + 5, words)


def resistor(start, end, words):
    def body(x, y, ux, _):
        width, height = (40, 14) if abs(ux) > 0.5 else (14, 40)
        shapes.append(f'<rect x="{x - width / 2:g}" y="{y - height / 2:g}" '
                      f'width="{width}" height="{height}"/>')
    part(start, end, 40, words, body)


def capacitor(start, end, words):
    def body(x, y, ux, uy):
        for side in (-4, 4):
            line((x + ux * side - uy * 13, y + uy * side - ux * 13),
                 (x + ux * side + uy * 13, y + uy * side + ux * 13))
    part(start, end, 8, words, body)


def contact(start, end, words):
    """A contact, drawn open."""
    def body(x, y, ux, uy):
        for side in (-20, 20):
            dot(x + ux * side, y + uy * side)
        line((x - ux * 20, y - uy * 20), (x + ux * 18 + uy * 10, y + uy * 18 - ux * 10))
    part(start, end, 40, words, body)


BOARD_LEFT, BOARD_RIGHT = 370, 560


def pin(side, y, words):
    x = BOARD_LEFT if side == "left" else BOARD_RIGHT
    dot(x, y)
    text(x + (8 if side == "left" else -8), y + 5, words, "start" if side == "left" else "end")


def draw_board():
    box(BOARD_LEFT, 40, BOARD_RIGHT - BOARD_LEFT, 660, "ATmega328P board", "16 MHz (Uno)")
    for y, words in ((120, "USB"), (200, "RESET"), (320, "AREF"), (440, "analog 0"),
                     (640, "GND")):
        pin("left", y, words)
    for y, words in ((140, "pin 5"), (370, "pin 6"), (560, "pin 7")):
        pin("right", y, words)
    line((BOARD_LEFT, 640), (330, 640))
    ground(330, 640)


def draw_left():
    box(40, 95, 170, 50, "computer", "USB: power and line")
    line((210, 120), (BOARD_LEFT, 120))

    line((BOARD_LEFT, 200), (300, 200))
    capacitor((300, 200), (300, 250), "10 uF")
    ground(300, 250)
    text(40, 190, "optional: opening the port", kind="note")
    text(40, 208, "does not reset the board;", kind="note")
    text(40, 226, "take it off for flashing", kind="note")

    line((BOARD_LEFT, 320), (230, 320))
    resistor((230, 265), (230, 320), "")
    text(215, 298, "470 Ohm", "end")
    supply(230, 265)
    dot(230, 320)
    line((230, 320), (230, 332))
    shapes.append('<polygon points="220,348 240,348 230,332"/>')
    line((216, 336), (220, 332), (240, 332), (244, 328))
    line((230, 348), (230, 356))
    ground(230, 356)
    text(208, 347, "LM4040, 4.096 V", "end")
    text(40, 378, "optional, with a program", kind="note")
    text(40, 396, "that was built for it", kind="note")

    box(40, 415, 120, 50, "amplifier", "0 to 5 V")
    resistor((160, 440), (270, 440), "1 kOhm")
    line((270, 440), (BOARD_LEFT, 440))
    dot(290, 440)
    capacitor((290, 440), (290, 500), "10 nF")
    ground(290, 500)


def draw_right():
    # Laser: pull-down, filter, driver.
    line((BOARD_RIGHT, 140), (650, 140))
    dot(610, 140)
    resistor((610, 140), (610, 220), "4.7 kOhm")
    ground(610, 220)
    text(576, 118, "62.5 kHz", kind="note")
    resistor((650, 140), (760, 140), "470 Ohm")
    line((760, 140), (850, 140))
    dot(770, 140)
    capacitor((770, 140), (770, 220), "2.2 uF")
    ground(770, 220)
    box(850, 100, 170, 90, "laser driver", "modulation 0 to 5 V,", "100 kOhm or more")

    # The driver's own interlock, which needs no program.
    line((900, 190), (900, 240), (915, 240))
    contact((915, 240), (965, 240), "")
    line((965, 240), (980, 240), (980, 190))
    text(940, 265, "contact 1", "middle")
    text(940, 288, "the driver's own interlock:", "middle", "note")
    text(940, 306, "it works without this board", "middle", "note")

    # Illumination.
    resistor((BOARD_RIGHT, 370), (700, 370), "100 Ohm")
    line((700, 370), (850, 370))
    dot(720, 370)
    resistor((720, 370), (720, 450), "4.7 kOhm")
    ground(720, 450)
    box(850, 340, 170, 76, "illumination", "TTL input, or a", "logic-level MOSFET")

    # The interlock's second contact, for the board.
    line((BOARD_RIGHT, 560), (740, 560))
    dot(600, 560)
    resistor((600, 490), (600, 560), "4.7 kOhm")
    supply(600, 490)
    dot(640, 560)
    capacitor((640, 560), (640, 630), "100 nF")
    ground(640, 630)
    resistor((740, 560), (840, 560), "220 Ohm")
    contact((840, 560), (960, 560), "contact 2")
    line((960, 560), (980, 560), (980, 580))
    ground(980, 580)
    text(740, 630, "without an interlock: a wire from pin 7 to", kind="note")
    text(740, 648, "GND in place of all this; with neither, the", kind="note")
    text(740, 666, "laser stays dark", kind="note")


draw_board()
draw_left()
draw_right()
text(40, 736, "All grounds are one. Both pull-downs belong close to the pins: while the board is in "
     "reset they alone keep the outputs low.", kind="note")
print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
      f'width="{WIDTH}" height="{HEIGHT}" font-family="Arial, Helvetica, sans-serif" '
      'fill="none" stroke="#222" stroke-width="1.6">')
print('<style>text { fill: #222; stroke: none; font-size: 14px } .title { font-weight: bold; '
      'font-size: 15px } .note { fill: #666; font-style: italic; font-size: 13px } '
      '.dot { fill: #222 } .box { fill: #f4f4f0 }</style>')
print(f'<rect width="{WIDTH}" height="{HEIGHT}" fill="#fff" stroke="none"/>')
print("\n".join(shapes))
print("</svg>")
