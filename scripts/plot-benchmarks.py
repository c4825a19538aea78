#!/usr/bin/python3
"""Draws the benchmark plots of docs/benchmarks.md from the benchmarks' JSON.

Reads, in DIR (default docs/benchmarks):
  lpm.json          bench_lpm on one thread (its synthetic cases, one per
                    size given to --synthetic, make the curves over size)
  lpm-threads*.json bench_lpm with --threads N, one file per N (optional)
  live.json         bench_live (optional)
and writes the plots beside them, as SVG (or --format png). --install first
installs Debian's python3-matplotlib when it is missing (root or sudo).
"""

import argparse
import glob
import json
import os
import subprocess
import sys

FIB, TRIE = "vell fib", "vell trie"
STYLE = {FIB: ("tab:blue", "o"), TRIE: ("tab:green", "s"),
         "rte_lpm": ("tab:red", "^"), "rte_lpm6": ("tab:red", "^"),
         "live": ("tab:purple", "D"), "DPDK": ("tab:red", "^")}
FORMAT = "svg"
KEY_SETS = (("uniform", "keys drawn uniformly"),
            ("inside", "keys inside the prefixes"))


def install_matplotlib():
    if subprocess.run(["dpkg", "-s", "python3-matplotlib"],
                      capture_output=True).returncode == 0:
        return
    sudo = [] if os.geteuid() == 0 else ["sudo"]
    print("plot-benchmarks: installing python3-matplotlib")
    subprocess.run(sudo + ["apt-get", "update", "-qq"], check=True)
    subprocess.run(sudo + ["env", "DEBIAN_FRONTEND=noninteractive", "apt-get",
                           "install", "-y", "-qq", "python3-matplotlib"],
                   check=True)


def load(path):
    with open(path) as f:
        return json.load(f)


def short(case):
    """A case's name for a legend or an axis: kind and prefix count."""
    title = case["title"]
    kind = ("nested routing table" if "routing" in title
            else "address-to-ASN" if "ASN" in title else "synthetic")
    return "%s %s\n%s prefixes" % (title.split(",")[0], kind,
                                   format(case["prefixes"], ","))


def rows(case):
    return {r["library"]: r for r in case["rows"]}


def save(fig, out_dir, name):
    path = os.path.join(out_dir, name + "." + FORMAT)
    fig.savefig(path, metadata={"Date": None})
    print("plot-benchmarks: wrote", path)


def plot_size(plt, lpm, out_dir):
    """Lookup rate and memory against the synthetic tables' size, with the
    real tables as lone points."""
    synthetic = sorted((c for c in lpm["cases"] if "synthetic" in c["title"]),
                       key=lambda c: c["prefixes"])
    real4 = [c for c in lpm["cases"]
             if "synthetic" not in c["title"] and c["title"].startswith("IPv4")]
    libraries = [lib for lib in (FIB, TRIE, "rte_lpm")
                 if any(lib in rows(c) for c in synthetic)]

    def series(lib, get):
        pts = [(c["prefixes"], get(rows(c)[lib])) for c in synthetic
               if lib in rows(c)]
        return [p[0] for p in pts], [p[1] for p in pts]

    fig, axes = plt.subplots(1, 2, figsize=(11, 4.2), sharey=True)
    for ax, (key_set, label) in zip(axes, KEY_SETS):
        for lib in libraries:
            colour, marker = STYLE[lib]
            for mode, line in (("bulk", "-"), ("single", ":")):
                xs, ys = series(lib, lambda r: r[key_set][mode + "_mps"])
                ax.plot(xs, ys, line, color=colour, marker=marker,
                        label="%s, %s" % (lib, mode))
            for c in real4:
                if lib in rows(c):
                    ax.plot(c["prefixes"], rows(c)[lib][key_set]["bulk_mps"],
                            marker=marker, color=colour, fillstyle="none",
                            markersize=10, linestyle="none")
        ax.set_xscale("log")
        ax.set_title("IPv4, " + label)
        ax.set_xlabel("prefixes (synthetic tables; hollow: real tables, bulk)")
        ax.grid(True, which="both", alpha=0.3)
    axes[0].set_ylabel("million lookups/s, one thread")
    axes[1].legend(fontsize="small")
    fig.tight_layout()
    save(fig, out_dir, "rate-vs-prefixes")

    fig, ax = plt.subplots(figsize=(6.5, 4.2))
    for lib in libraries:
        colour, marker = STYLE[lib]
        xs, ys = series(lib, lambda r: r["memory_mb"])
        ax.plot(xs, ys, "-", color=colour, marker=marker, label=lib)
        for c in real4:
            if lib in rows(c):
                ax.plot(c["prefixes"], rows(c)[lib]["memory_mb"], marker=marker,
                        color=colour, fillstyle="none", markersize=10,
                        linestyle="none")
    ax.set_xscale("log")
    ax.set_yscale("log")
    ax.set_xlabel("IPv4 prefixes (synthetic tables; hollow: real tables)")
    ax.set_ylabel("memory, MB")
    ax.grid(True, which="both", alpha=0.3)
    ax.legend()
    fig.tight_layout()
    save(fig, out_dir, "memory-vs-prefixes")


def bars(ax, groups, series_names, value):
    """Grouped bars: one group per entry of `groups`, one bar per series."""
    width = 0.8 / len(series_names)
    for i, name in enumerate(series_names):
        colour = STYLE.get(name, ("tab:gray", ""))[0]
        xs = [g + (i - (len(series_names) - 1) / 2) * width
              for g in range(len(groups))]
        ax.bar(xs, [value(grp, name) for grp in groups], width, label=name,
               color=colour, alpha=0.85)


def plot_key_sets(plt, lpm, out_dir):
    """Every case's rates on both key sets, single and bulk."""
    cases = [c for c in lpm["cases"]
             if "synthetic" not in c["title"]
             or c["prefixes"] == max(x["prefixes"] for x in lpm["cases"])]
    fig, axes = plt.subplots(1, len(cases), figsize=(3.4 * len(cases), 4.2))
    for ax, c in zip(axes, cases):
        r = rows(c)
        groups = [(k, m) for k, _ in KEY_SETS for m in ("single", "bulk")]
        bars(ax, groups, list(r),
             lambda g, lib: r[lib][g[0]][g[1] + "_mps"])
        ax.set_xticks(range(len(groups)))
        ax.set_xticklabels(["%s\n%s" % g for g in groups], fontsize="small")
        ax.set_title(short(c), fontsize="medium")
        ax.grid(True, axis="y", alpha=0.3)
        ax.legend(fontsize="small")
    axes[0].set_ylabel("million lookups/s, one thread")
    fig.tight_layout()
    save(fig, out_dir, "rate-by-key-set")


def plot_threads(plt, runs, out_dir):
    """Bulk rates of every library against the number of threads."""
    runs = sorted(runs, key=lambda r: r["threads"])
    titles = [c["title"] for c in runs[-1]["cases"]
              if all(any(x["title"] == c["title"] for x in r["cases"])
                     for r in runs)]
    fig, axes = plt.subplots(1, len(titles), figsize=(3.8 * len(titles), 4.5))
    axes = axes if len(titles) > 1 else [axes]
    for ax, title in zip(axes, titles):
        per_run = [rows(next(c for c in r["cases"] if c["title"] == title))
                   for r in runs]
        threads = [r["threads"] for r in runs]
        for lib in per_run[-1]:
            colour, marker = STYLE[lib]
            for (key_set, _), line in zip(KEY_SETS, ("-", "--")):
                name = "DPDK" if lib.startswith("rte_") else lib
                ax.plot(threads, [p[lib][key_set]["bulk_mps"] for p in per_run],
                        line, color=colour, marker=marker,
                        label="%s, keys %s" % (name, key_set))
        case = next(c for c in runs[-1]["cases"] if c["title"] == title)
        ax.set_title(short(case), fontsize="medium")
        ax.set_xticks(threads)
        ax.set_xlabel("threads")
        ax.set_ylim(bottom=0)
        ax.grid(True, alpha=0.3)
    axes[0].set_ylabel("million bulk lookups/s, all threads")
    handles, labels = axes[0].get_legend_handles_labels()
    fig.legend(handles, labels, loc="lower center", ncol=len(labels),
               fontsize="small")
    fig.tight_layout(rect=(0, 0.07, 1, 1))
    save(fig, out_dir, "rate-vs-threads")


def plot_live(plt, live, out_dir):
    """Publish latency of one change and changes absorbed, the live tables
    against DPDK's (rte_lpm or rte_lpm6, whichever the case has)."""
    def value(case, metric, who):
        f = next((f for f in case["figures"] if f["metric"] == metric), {})
        return f.get(who, 0) if who == "live" else \
            f.get("rte_lpm", f.get("rte_lpm6", 0))

    cases = live["cases"]
    who = ("live", "DPDK")
    fig, (lat, absorbed) = plt.subplots(1, 2, figsize=(12, 4.6))
    groups = [(c, q) for c in cases for q in ("p50", "p99", "max")]
    bars(lat, groups, who, lambda g, w: value(
        g[0], "publish latency %s, one change" % g[1], w))
    lat.set_yscale("log")
    lat.set_ylim(bottom=0.1)
    lat.set_xticks(range(len(groups)))
    lat.set_xticklabels(["%s\n%s" % (q, short(c).split("\n")[0]) if q == "p99"
                         else q for c, q in groups], fontsize="small")
    lat.set_ylabel("microseconds (log scale)")
    lat.set_title("publishing one change")
    lat.grid(True, axis="y", which="both", alpha=0.3)
    lat.legend(fontsize="small")

    metric = "changes absorbed, publish every 1 ms"
    bars(absorbed, cases, who, lambda c, w: value(c, metric, w))
    absorbed.set_xticks(range(len(cases)))
    absorbed.set_xticklabels([short(c) for c in cases], fontsize="small")
    absorbed.set_yscale("log")
    absorbed.set_ylim(1, 10 * max(value(c, metric, w)
                                  for c in cases for w in who))
    absorbed.set_ylabel("thousand changes/s (log scale)")
    absorbed.set_title("changes one writer absorbs, publishing every 1 ms")
    absorbed.grid(True, axis="y", which="both", alpha=0.3)
    absorbed.legend(fontsize="small", loc="upper center", ncol=2)
    fig.tight_layout()
    save(fig, out_dir, "live-changes")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("dir", nargs="?", default=os.path.join(
        os.path.dirname(os.path.abspath(__file__)), "..", "docs", "benchmarks"))
    parser.add_argument("--install", action="store_true",
                        help="install python3-matplotlib when missing")
    parser.add_argument("--format", choices=("svg", "png"), default="svg")
    args = parser.parse_args()
    global FORMAT
    FORMAT = args.format
    if args.install:
        install_matplotlib()
    try:
        import matplotlib
    except ImportError:
        # Debian's package serves Debian's interpreter, which another
        # python3 first on the PATH does not see.
        debian = "/usr/bin/python3"
        if os.path.realpath(sys.executable) != os.path.realpath(debian) \
                and os.path.exists(debian):
            os.execv(debian, [debian] + sys.argv)
        sys.exit("plot-benchmarks: python3-matplotlib is missing; "
                 "run with --install to install it")
    matplotlib.use("agg")
    matplotlib.rcParams["svg.hashsalt"] = "vell-ds"  # stable ids, stable diffs
    matplotlib.rcParams["svg.fonttype"] = "none"  # text stays text
    import matplotlib.pyplot as plt

    d = os.path.normpath(args.dir)
    lpm_path = os.path.join(d, "lpm.json")
    if not os.path.exists(lpm_path):
        sys.exit("plot-benchmarks: %s: no such file" % lpm_path)
    lpm = load(lpm_path)
    plot_size(plt, lpm, d)
    plot_key_sets(plt, lpm, d)
    threaded = [load(p) for p in sorted(glob.glob(
        os.path.join(d, "lpm-threads*.json")))]
    if threaded:
        plot_threads(plt, [lpm] + threaded, d)
    live_path = os.path.join(d, "live.json")
    if os.path.exists(live_path):
        plot_live(plt, load(live_path), d)


if __name__ == "__main__":
    main()
