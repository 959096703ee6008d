"""What scripts/bench runs: the commands, the inputs they need and the rows of the table."""
from dataclasses import dataclass
from typing import Optional

# Braces are filled in by scripts/bench: {fusion}, {stages} and {floor} are programs, {dir} is the scene's folder, {pan},
# {ms} and {out} are files in it, {fused} is a raw Brovey result, {interleave} is whichever was faster for the command.
FUSE = "{fusion} fuse {pan} {ms} {out} --no-overviews --quiet --method "
RAW = " --spectral-match off"
GDAL = "gdal_pansharpen.py -q -r cubic -co INTERLEAVE={interleave} {pan} {ms} {out}"
GDAL_BEST = "env GDAL_CACHEMAX=64 " + GDAL + " -threads ALL_CPUS"
ONE_CORE = "taskset -c 0 "

# The scene's files in other organisations.
VARIANTS = {
    "tiles": "-co TILED=YES",
    "deflate-strips": "-co COMPRESS=DEFLATE -co PREDICTOR=2",
    "deflate-tiles": "-co COMPRESS=DEFLATE -co PREDICTOR=2 -co TILED=YES",
    "zstd-strips": "-co COMPRESS=ZSTD -co PREDICTOR=2",
    "zstd-tiles": "-co COMPRESS=ZSTD -co PREDICTOR=2 -co TILED=YES",
}

# Run once for a scene that all rows are measured on.
PREPARE = [f"gdal_translate -q {options} {{dir}}/{image}.tif {{dir}}/{image}-{name}.tif"
           for name, options in VARIANTS.items() for image in ("pan", "ms")]
PREPARE.append("gdalwarp -q -r cubic -t_srs EPSG:4326 {ms} {dir}/ms-geographic.tif")

COMMANDS = {
    "brovey": FUSE + "brovey" + RAW,
    "brovey nearest": FUSE + "brovey --resample nearest" + RAW,
    "brovey bilinear": FUSE + "brovey --resample bilinear" + RAW,
    "brovey float32": FUSE + "brovey --type float32" + RAW,
    "brovey one core": ONE_CORE + FUSE + "brovey" + RAW,
    "brovey reprojected": (FUSE + "brovey" + RAW).replace("{ms}", "{dir}/ms-geographic.tif"),
    "multiplicative": FUSE + "multiplicative --type float32" + RAW,
    "weighted": FUSE + "weighted" + RAW,
    "ihs": FUSE + "ihs" + RAW,
    "sharpen": FUSE + "sharpen" + RAW,
    "pca": FUSE + "pca",
    "hpf": FUSE + "hpf",
    "bayesian": FUSE + "bayesian",
    "brovey matched": FUSE + "brovey",
    "multiplicative matched": FUSE + "multiplicative",
    "weighted matched": FUSE + "weighted",
    "ihs matched": FUSE + "ihs",
    "evaluations": "{fusion} evaluate {pan} {ms} {fused} --quiet --json",
    "gdalinfo -stats": "gdalinfo -stats {fused}",
    "gdal": GDAL_BEST,
    "gdal one core": "env GDAL_CACHEMAX=64 " + ONE_CORE + GDAL,
    "gdal default": GDAL.replace(" -co INTERLEAVE={interleave}", ""),
    "floor": "{floor} {pan} {ms} {out}",
    "copy": "cp {fused} {out}",
}
# What every method gains from a second thread; of the kernel-bound ones the most is expected.
METHODS = ("brovey", "brovey reprojected", "multiplicative", "weighted", "ihs", "sharpen", "pca", "hpf", "bayesian")
KERNEL_BOUND = ("brovey reprojected", "weighted", "ihs", "bayesian")
for name in METHODS:
    for threads in (1, 2):
        COMMANDS[f"{name}, threads {threads}"] = f"{COMMANDS[name]} --threads {threads}"
for variant, options in VARIANTS.items():
    for tool in ("brovey", "gdal"):
        command = COMMANDS[tool].replace("{pan}", f"{{dir}}/pan-{variant}.tif")
        COMMANDS[f"{tool} {variant}"] = command.replace("{ms}", f"{{dir}}/ms-{variant}.tif")
        # What is written is organised likewise.
        COMMANDS[f"{tool} {variant}, written likewise"] = (
            COMMANDS[f"{tool} {variant}"] + (" --co " if tool == "brovey" else " -co ").join(["", *options.split("-co ")[1:]]))


@dataclass(frozen=True)
class Row:
    """One line of the table: the wall time of a command over that of another, measured in pairs."""

    title: str
    ours: str
    against: str
    goal: Optional[float] = None
    aim: Optional[float] = None
    every_size: bool = False


FLOOR_TITLE = "Brovey over the floor"
MATCHED = (2.0, 1.7)

ROWS = [
    Row("Brovey, bicubic", "brovey", "gdal", 0.50, 0.40, every_size=True),
    Row("Brovey on one core", "brovey one core", "gdal one core", 0.75, 0.60),
    Row(FLOOR_TITLE, "brovey", "floor", every_size=True),
    Row("Brovey, nearest", "brovey nearest", "brovey", 1.0),
    Row("Brovey, bilinear", "brovey bilinear", "brovey", 1.0),
    Row("Brovey, reprojected", "brovey reprojected", "brovey", 5.0, 3.0),
    Row("PCA", "pca", "brovey", 1.2),
    Row("Multiplicative, float32", "multiplicative", "brovey float32", 1.5),
    Row("Weighted", "weighted", "brovey", 2.0, 1.5),
    Row("Bayesian", "bayesian", "brovey", 1.6),
    Row("IHS", "ihs", "brovey", 4.0, 2.0),
    Row("Simple pan-sharpening", "sharpen", "brovey", 1.5, 1.2),
    Row("HPF, one filter", "hpf", "brovey", 2.5, 1.8),
    Row("Brovey, matched", "brovey matched", "brovey", *MATCHED),
    Row("Multiplicative, matched", "multiplicative matched", "brovey", *MATCHED),
    Row("Weighted, matched", "weighted matched", "brovey", *MATCHED),
    Row("IHS, matched", "ihs matched", "brovey", *MATCHED),
    *(Row(f"{name}, two threads over one", f"{name}, threads 2", f"{name}, threads 1",
          *((0.60, 0.55) if name in KERNEL_BOUND else ())) for name in METHODS),
    *(Row(f"Brovey, {variant}", f"brovey {variant}", f"gdal {variant}") for variant in VARIANTS),
    *(Row(f"Brovey, {variant}, written likewise", f"brovey {variant}, written likewise",
          f"gdal {variant}, written likewise", 0.60, 0.45) for variant in ("deflate-tiles", "zstd-tiles")),
    Row("Four evaluations", "evaluations", "gdalinfo -stats", 5.0, 3.0),
    Row("gdal_pansharpen.py as it comes", "gdal default", "gdal"),
    Row("File copy over the floor", "copy", "floor", every_size=True),
]

MEMORY_GOAL_MIB = 256.0
# Growing with the width only: what the allocator adds or leaves out may differ by this much.
TALL_MEMORY_GOAL = 1.05
GROWTH_GOAL = 1.1
