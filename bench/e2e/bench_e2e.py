#!/usr/bin/env python3
"""`vetext render` over a real clip against ffmpeg with drawtext, with ass, and with no filter.

The clip: 10 s (or --seconds) of 1080p testsrc2 at 25 fps, H.264 yuv420p, made once. Every
contender decodes it, draws the same title (Liberation Sans, a 96 px em, white, centred) and
writes either the same encoder's output (libx264, preset fast, crf 18: the tool's own settings)
or nothing (ffmpeg's `-f null -`, the tool's `-o null:`). Interleaved: each repeat runs every
contender once. Prints medians of wall time per frame and the ratios to the faster peer.

Usage: bench_e2e.py BUILD_DIR [--seconds 10] [--repeats 3]
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

FONT_FILE = "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf"
EM_PX = 96
ASS_SIZE = round(EM_PX * (1854 + 434) / 2048)  # libass sizes by ascender + descender
X264 = ["-c:v", "libx264", "-preset", "fast", "-crf", "18", "-pix_fmt", "yuv420p"]


def run(cmd, env=None):
    start = time.perf_counter()
    proc = subprocess.run(cmd, capture_output=True, text=True, env=env)
    if proc.returncode != 0:
        sys.exit("bench_e2e: %s failed:\n%s" % (" ".join(cmd), proc.stderr))
    return time.perf_counter() - start


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("build", help="the build folder (holds tools/vetext/vetext)")
    ap.add_argument("--seconds", type=float, default=10)
    ap.add_argument("--repeats", type=int, default=3)
    a = ap.parse_args()
    tool = os.path.abspath(os.path.join(a.build, "tools", "vetext", "vetext"))
    env = dict(os.environ)
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    env.setdefault("FONTCONFIG_FILE", os.path.join(root, "fonts", "fonts.conf"))
    frames = int(a.seconds * 25)
    with tempfile.TemporaryDirectory() as work:
        clip = os.path.join(work, "clip.mp4")
        run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=25",
             "-t", str(a.seconds)] + X264 + [clip])
        ass = os.path.join(work, "title.ass")
        with open(ass, "w") as f:
            f.write("[Script Info]\nScriptType: v4.00+\nPlayResX: 1920\nPlayResY: 1080\n\n"
                    "[V4+ Styles]\nFormat: Name, Fontname, Fontsize, PrimaryColour, "
                    "SecondaryColour, OutlineColour, BackColour, Bold, Italic, Underline, "
                    "StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, "
                    "Alignment, MarginL, MarginR, MarginV, Encoding\nStyle: Default,Liberation "
                    "Sans,%d,&H00FFFFFF,&H00FFFFFF,&H00000000,&H00000000,0,0,0,0,100,100,0,0,1,"
                    "0,0,5,0,0,0,1\n\n[Events]\nFormat: Layer, Start, End, Style, Name, MarginL, "
                    "MarginR, MarginV, Effect, Text\nDialogue: 0,0:00:00.00,9:00:00.00,Default,,"
                    "0,0,0,,vetext\n" % ASS_SIZE)
        drawtext = ("drawtext=fontfile=%s:text=vetext:fontsize=%d:fontcolor=white:"
                    "x=(w-text_w)/2:y=(h-text_h)/2" % (FONT_FILE, EM_PX))
        out = os.path.join(work, "out.mp4")

        def ffmpeg(vf, sink):
            cmd = ["ffmpeg", "-v", "error", "-y", "-i", clip]
            if vf:
                cmd += ["-vf", vf]
            return cmd + (X264 + [out] if sink == "x264" else ["-f", "null", "-"])

        def vetext(text, sink):
            args = [tool, "render", "-i", clip, "-o", out if sink == "x264" else "null:"]
            return args + (["--text", "vetext", "--size", str(EM_PX)] if text else ["--opacity", "0"])

        rows = {}
        for sink in ("x264", "null"):
            rows[sink] = {
                "ffmpeg, no text": ffmpeg("", sink),
                "vetext, no text": vetext(False, sink),
                "ffmpeg drawtext": ffmpeg(drawtext, sink),
                "ffmpeg ass": ffmpeg("ass=" + ass, sink),
                "vetext title": vetext(True, sink),
            }
        times = {}
        for _ in range(a.repeats):
            for sink, contenders in rows.items():
                for name, cmd in contenders.items():
                    times.setdefault((sink, name), []).append(run(cmd, env) * 1000 / frames)
    print("%d frames of 1920x1080, median of %d interleaved runs, ms per frame" %
          (frames, a.repeats))
    for sink in rows:
        med = {n: statistics.median(times[(sink, n)]) for n in rows[sink]}
        peer = min(med["ffmpeg drawtext"], med["ffmpeg ass"])
        print("output: %s" % ("libx264 fast crf 18" if sink == "x264" else "none (null sink)"))
        for name, ms in med.items():
            print("  %-18s %8.2f   %.2fx the faster peer" % (name, ms, ms / peer))
        print("  no text: vetext %.2fx ffmpeg" % (med["vetext, no text"] / med["ffmpeg, no text"]))


if __name__ == "__main__":
    main()
