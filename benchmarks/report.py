"""The outcome of scripts/bench as Markdown, CSV and pictures."""
import csv
import statistics
from dataclasses import dataclass, fields
from typing import Optional

import rows

STAGES = ("reading", "resampling", "arithmetic", "conversion", "writing")


@dataclass(frozen=True)
class Run:
    """One measured process."""

    size: int
    row: str
    command: str
    pair: int
    wall_s: float
    cpu_s: float
    peak_mib: float


@dataclass(frozen=True)
class Line:
    """One figure beside its goal."""

    size: str
    title: str
    figure: float
    unit: str
    goal: Optional[float]
    aim: Optional[float]
    detail: str

    def verdict(self):
        if self.goal is None:
            return ""
        return "met" if self.figure <= self.goal else "not met"


def runs_of(runs, row, size, command):
    return [run for run in runs if (run.row, run.size, run.command) == (row.title, size, command)]


def median(runs, field):
    return statistics.median(getattr(run, field) for run in runs)


def ratio(runs, row, size):
    """The median of the paired ratios; None where the row was not measured at the size."""
    ours = runs_of(runs, row, size, row.ours)
    against = {run.pair: run for run in runs_of(runs, row, size, row.against)}
    ratios = [run.wall_s / against[run.pair].wall_s for run in ours]
    return statistics.median(ratios) if ratios else None


def describe(runs, command):
    return (f"{command}: {median(runs, 'wall_s'):.2f} s, CPU {median(runs, 'cpu_s'):.2f} s, "
            f"{max(run.peak_mib for run in runs):.0f} MiB")


def ratio_lines(runs, sizes):
    for row in rows.ROWS:
        for size in sizes:
            figure = ratio(runs, row, size)
            if figure is not None:
                detail = "; ".join(describe(runs_of(runs, row, size, c), c) for c in (row.ours, row.against))
                yield Line(str(size), row.title, figure, "x", row.goal, row.aim, detail)


def memory_lines(runs, main_size, tall_run):
    peaks = [run.peak_mib for run in runs if run.command == "brovey" and run.size == main_size]
    if not peaks:
        return
    peak = max(peaks)
    yield Line(str(main_size), "Brovey, peak memory", peak, " MiB", rows.MEMORY_GOAL_MIB, None, "")
    if tall_run:
        yield Line(f"{main_size} x {8 * main_size}", "Brovey, peak memory over that of the square scene",
                   tall_run.peak_mib / peak, "x", rows.TALL_MEMORY_GOAL, None,
                   f"{tall_run.peak_mib:.0f} MiB, {tall_run.wall_s:.2f} s")


def growth_lines(runs, sizes):
    """Our growth over the floor's from one size to the next is the growth of the paired ratio."""
    row = next(row for row in rows.ROWS if row.title == rows.FLOOR_TITLE)
    measured = [(size, ratio(runs, row, size)) for size in sizes]
    measured = [(size, figure) for size, figure in measured if figure is not None]
    for (small, before), (large, after) in zip(measured, measured[1:]):
        # Start-up still counts in small scenes, so the goal is one for large ones.
        goal = rows.GROWTH_GOAL if small >= 8192 else None
        yield Line(f"{small} to {large}", "Brovey, growth over that of the floor", after / before, "x", goal, None, "")


def all_lines(runs, sizes, main_size, tall_run):
    return [*ratio_lines(runs, sizes), *memory_lines(runs, main_size, tall_run), *growth_lines(runs, sizes)]


def markdown(lines, stages, notes):
    text = [f"- {note}" for note in notes]
    text += ["", "| size | row | goal (aim) | figure | | medians, peak memory |", "|---|---|---|---|---|---|"]
    for line in lines:
        goal = "" if line.goal is None else f"{line.goal:g}" + (f" ({line.aim:g})" if line.aim else "")
        text.append(f"| {line.size} | {line.title} | {goal} | {line.figure:.2f}{line.unit} | {line.verdict()} | "
                    f"{line.detail} |")
    if stages:
        text += ["", "One thread, seconds:", "", "| size | " + " | ".join(STAGES) + " |", "|---" * 6 + "|"]
        for size, split in stages.items():
            text.append(f"| {size} | " + " | ".join(f"{split[stage]['seconds']:.3f}" for stage in STAGES) + " |")
    return "\n".join(text) + "\n"


def write_csv(folder, runs, lines, stages):
    def table(name, header, records):
        with open(folder / name, "w", newline="", encoding="utf-8") as file:
            writer = csv.writer(file)
            writer.writerow(header)
            writer.writerows(records)

    names = [field.name for field in fields(Run)]
    table("runs.csv", names, ([getattr(run, name) for name in names] for run in runs))
    table("table.csv", ["size", "row", "figure", "unit", "goal", "aim", "verdict"],
          ([l.size, l.title, l.figure, l.unit.strip(), l.goal, l.aim, l.verdict()] for l in lines))
    table("stages.csv", ["size", "stage", "seconds", "pixels_per_second"],
          ([size, stage, *split[stage].values()] for size, split in stages.items() for stage in STAGES))


def draw(folder, runs, sizes, stages):
    """The pictures; False where matplotlib is missing. It is imported here, after everything was measured, because a
    child's peak memory counts from what its parent held when it was started."""
    try:
        import matplotlib
    except ImportError:
        return False
    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(figsize=(7, 5))
    for command in ("gdal", "brovey", "floor", "copy"):
        points = [(size, [run for run in runs if (run.size, run.command) == (size, command)]) for size in sizes]
        points = [(size, median(found, "wall_s")) for size, found in points if found]
        if points:
            axes.plot(*zip(*points), marker="o", label="gdal_pansharpen.py" if command == "gdal" else command)
    axes.set(xscale="log", yscale="log", xlabel="width and height of the pan image", ylabel="wall time, s")
    axes.set_xticks(sizes, [str(size) for size in sizes])
    axes.minorticks_off()
    axes.grid(True, alpha=0.3)
    axes.legend()
    figure.savefig(folder / "wall.png", dpi=150, bbox_inches="tight")
    pyplot.close(figure)

    figure, axes = pyplot.subplots(figsize=(7, 5))
    labels = [str(size) for size in stages]
    below = [0.0] * len(labels)
    for stage in STAGES:
        heights = [1e9 / max(split[stage]["pixels_per_second"], 1.0) if split[stage]["seconds"] > 0.0 else 0.0
                   for split in stages.values()]
        axes.bar(labels, heights, bottom=below, label=stage)
        below = [low + height for low, height in zip(below, heights)]
    axes.set(xlabel="width and height of the pan image", ylabel="one thread, ns per pixel")
    axes.legend(*(entries[::-1] for entries in axes.get_legend_handles_labels()), loc="upper left", bbox_to_anchor=(1, 1))
    figure.savefig(folder / "stages.png", dpi=150, bbox_inches="tight")
    pyplot.close(figure)
    return True
