#!/usr/bin/env python3
"""Plots signals of a capture over time: one value of one message kind each, read into pandas frames.

    plot_signal.py CAPTURE [CAPTURE...] --formats FORMATS --signal SERVICE.METHOD.PATH [--signal ...] -o plot.png

SERVICE.METHOD names a frame of someip_parser_vaq.capture_frames (names from the formats, or IDs as
0x1234.0x8001; ':response' after the method for replies); PATH is its column: members joined with dots,
fixed array elements numbered (wheels.0.pressure). Needs pandas and matplotlib (Debian: python3-pandas
python3-matplotlib) and the module on the Python path.
"""
import argparse
import sys


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("captures", nargs="+", help="pcap or pcapng files")
    parser.add_argument("--formats", required=True, help="a format file or a directory tree of them")
    parser.add_argument("--signal", action="append", required=True, help="SERVICE.METHOD.PATH (repeatable)")
    parser.add_argument("-o", "--output", required=True, help="the image to write (PNG, SVG or PDF)")
    parser.add_argument("--scaled", default="physical", choices=["raw", "physical"],
                        help="scaled numbers as their raw or physical value (default: physical)")
    args = parser.parse_args()

    try:
        import matplotlib
        matplotlib.use("Agg")  # no display needed
        import matplotlib.pyplot as plt
        import someip_parser_vaq as sp
    except ImportError as e:
        sys.exit("plot_signal.py: %s (the module: build it and put <build>/python on PYTHONPATH; "
                 "matplotlib: Debian python3-matplotlib)" % e)

    wanted = []
    for signal in args.signal:
        parts = signal.split(".", 2)
        if len(parts) != 3:
            sys.exit("plot_signal.py: --signal %s: expected SERVICE.METHOD.PATH" % signal)
        wanted.append((parts[0] + "." + parts[1], parts[2]))

    formats = sp.Formats(args.formats)
    # One read per message kind asked for (a selector may be names or IDs); enumerations as their
    # numbers, so that they plot as steps.
    frames = {name: sp.capture_frames(args.captures, formats, [name], enum_style="value", scaled=args.scaled)
              for name in {f for f, _ in wanted}}
    figure, axes = plt.subplots(len(wanted), 1, figsize=(10, 2.5 * len(wanted)), sharex=True, squeeze=False)
    for axis, (frame_name, path) in zip(axes[:, 0], wanted):
        frame = next((f for f in frames[frame_name].values() if path in f), None)
        if frame is None:
            sys.exit("plot_signal.py: %s.%s: not in the capture" % (frame_name, path))
        series = frame[path]
        steps = series.dtype == bool or series.nunique() <= 16
        axis.plot(frame["time"], series.astype(float), drawstyle="steps-post" if steps else "default", lw=1)
        axis.set_title("%s.%s  (min %g, max %g, last %g)" % (frame_name, path, series.min(), series.max(),
                                                            series.iloc[-1]), fontsize=9)
        axis.grid(True, alpha=0.3)
    figure.tight_layout()
    figure.savefig(args.output, dpi=100)
    print("plot_signal.py: %s written (%d signals)" % (args.output, len(wanted)))


if __name__ == "__main__":
    main()
