#!/usr/bin/env python3
"""ffmpeg with the vetext frei0r filter against ffmpeg with drawtext and with the ass filter.

Same source (lavfi testsrc2, 1080p, 25 fps), same text in the same font (Liberation Sans) at
the same size, same output (the pixel format of the row, to the null muxer or to an encoder
given with --encoder), in one interleaved run: every repeat runs every contender of every row
once, so that a machine that slows down slows everyone alike. The floor is the same command
without a text filter; "text ms" is a contender's time per frame above it.

"frei0r floor" is the filter with nothing to draw: frei0r hands a filter a separate output
frame (and RGBA only), so every frei0r filter in ffmpeg pays a frame copy and, over yuv420p,
two conversions, which drawtext and ass, drawing in place on the planes, do not. "over own"
is a contender's time above its own floor: the text alone.

Rows: a static title and a counter (its text changes every frame), each over yuv420p frames
(what cameras and H.264 give: frei0r filters take RGBA, so ffmpeg converts around ours, while
drawtext and ass draw on the planes) and over RGBA frames (no conversion for anyone).

Usage: bench_frei0r.py BUILD_DIR [--seconds 4] [--repeats 3] [--encoder 'libx264 -preset
ultrafast']
"""
import argparse
import os
import resource
import statistics
import subprocess
import sys
import tempfile
import time

FONT_FILE = "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf"
EM_PX = 96  # the em of every contender, in pixels
# libass sizes a font by ascender + descender; Liberation Sans has (1854 + 434) / 2048 of an em.
ASS_SIZE = round(EM_PX * (1854 + 434) / 2048)
W, H, FPS = 1920, 1080, 25


def counter_text(n):
    return "vetext %d" % n


def write_inputs(work, frames):
    ass = os.path.join(work, "title.ass"), os.path.join(work, "counter.ass")
    header = (
        "[Script Info]\nScriptType: v4.00+\nPlayResX: %d\nPlayResY: %d\n\n[V4+ Styles]\n"
        "Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, "
        "BackColour, Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, "
        "BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV, Encoding\n"
        "Style: Default,Liberation Sans,%d,&H00FFFFFF,&H00FFFFFF,&H00000000,&H00000000,0,0,0,"
        "0,100,100,0,0,1,0,0,5,0,0,0,1\n\n[Events]\nFormat: Layer, Start, End, Style, Name, "
        "MarginL, MarginR, MarginV, Effect, Text\n" % (W, H, ASS_SIZE))

    def stamp(cs):
        return "%d:%02d:%02d.%02d" % (cs // 360000, cs // 6000 % 60, cs // 100 % 60, cs % 100)

    per_frame = 100 // FPS  # centiseconds
    with open(ass[0], "w") as f:
        f.write(header + "Dialogue: 0,%s,%s,Default,,0,0,0,,vetext\n" %
                (stamp(0), stamp(frames * per_frame)))
    with open(ass[1], "w") as f:
        f.write(header)
        for n in range(frames):
            f.write("Dialogue: 0,%s,%s,Default,,0,0,0,,%s\n" %
                    (stamp(n * per_frame), stamp((n + 1) * per_frame), counter_text(n)))
    # The filter takes a new text through FFmpeg's per-frame commands.
    size = EM_PX / H
    cmds = os.path.join(work, "counter.cmd")
    with open(cmds, "w") as f:
        for n in range(frames):
            f.write("%.4f frei0r filter_params '%s||%.9f';\n" % (n / FPS, counter_text(n), size))
    return ass, cmds, size


def contenders(row, fmt, ass, cmds, size):
    counter = row == "counter"
    frei0r = "frei0r=vetext:%s||%.9f" % ("vetext 0" if counter else "vetext", size)
    if counter:
        frei0r = "sendcmd=f=%s,%s" % (cmds, frei0r)
    text = "vetext %{frame_num}" if counter else "vetext"
    drawtext = ("drawtext=fontfile=%s:text='%s':fontsize=%d:fontcolor=white:"
                "x=(w-text_w)/2:y=(h-text_h)/2" % (FONT_FILE, text, EM_PX))
    return {
        "floor": "format=%s" % fmt,
        # The filter with nothing to draw: what frei0r itself costs in ffmpeg (RGBA conversions
        # around the filter, a new output frame and the copy of the input into it).
        "frei0r floor": "format=%s,frei0r=vetext: ||%.9f,format=%s" % (fmt, size, fmt),
        "vetext frei0r": "format=%s,%s,format=%s" % (fmt, frei0r, fmt),
        "drawtext": "format=%s,%s,format=%s" % (fmt, drawtext, fmt),
        "ass": "format=%s,ass=%s,format=%s" % (fmt, ass[1] if counter else ass[0], fmt),
    }


def run(chain, seconds, encoder):
    out = ["-f", "null", "-"] if not encoder else ["-c:v"] + encoder.split() + ["-f", "null", "-"]
    cmd = ["ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi", "-i",
           "testsrc2=size=%dx%d:rate=%d" % (W, H, FPS), "-t", str(seconds), "-vf", chain] + out
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    proc = subprocess.run(cmd, capture_output=True, text=True)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if proc.returncode != 0 or "vetext frei0r filter" in proc.stderr:
        sys.exit("bench_frei0r: %s failed:\n%s" % (" ".join(cmd), proc.stderr))
    cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
    return wall, cpu


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("build", help="the build folder (holds adapters/frei0r/vetext.so)")
    ap.add_argument("--seconds", type=float, default=4)
    ap.add_argument("--repeats", type=int, default=3)
    ap.add_argument("--encoder", default="", help="an ffmpeg encoder and its options")
    a = ap.parse_args()
    os.environ["FREI0R_PATH"] = os.path.abspath(os.path.join(a.build, "adapters", "frei0r"))
    frames = int(a.seconds * FPS)
    with tempfile.TemporaryDirectory() as work:
        ass, cmds, size = write_inputs(work, frames)
        rows = [(row, fmt) for row in ("title", "counter") for fmt in ("yuv420p", "rgba")]
        times = {}
        for _ in range(a.repeats):
            for row, fmt in rows:
                for name, chain in contenders(row, fmt, ass, cmds, size).items():
                    times.setdefault((row, fmt, name), []).append(run(chain, a.seconds, a.encoder))
    print("%d frames of %dx%d per run, median of %d interleaved runs, output %s" %
          (frames, W, H, a.repeats, a.encoder or "null"))
    print("%-8s %-8s %-14s %8s %8s %8s %9s %9s %9s" %
          ("row", "frames", "contender", "wall ms", "cpu ms", "text ms", "vs vetext", "over own",
           "vs vetext"))
    for row, fmt in rows:
        med = {n: (statistics.median(t[0] for t in v) * 1000 / frames,
                   statistics.median(t[1] for t in v) * 1000 / frames)
               for (r, f, n), v in times.items() if r == row and f == fmt}
        floor = med["floor"][0]
        ours = med["vetext frei0r"][0] - floor
        ours_own = med["vetext frei0r"][0] - med["frei0r floor"][0]
        for name, (wall, cpu) in med.items():
            text = wall - floor
            own = wall - (med["frei0r floor"][0] if name == "vetext frei0r" else floor)
            ratio = "%.2fx" % (text / ours) if ours > 0 and "floor" not in name else ""
            ratio_own = "%.2fx" % (own / ours_own) if ours_own > 0 and "floor" not in name else ""
            print("%-8s %-8s %-14s %8.2f %8.2f %8.2f %9s %9.2f %9s" %
                  (row, fmt, name, wall, cpu, text, ratio, own, ratio_own))
    print("vs vetext: the contender's ms over vetext's (above 1.00x vetext is faster); text ms is")
    print("over the plain floor, over own over the contender's own floor")


if __name__ == "__main__":
    main()
