"""Files by the package are those of the command, byte for byte, and reports are what it prints."""
import json
import math
import re
import subprocess

import pytest
from conftest import COMMAND, METHODS, SOURCE, command, read

import rsfusion

VARIANTS = {
    "plain": ("pan.tif", "ms.tif", {}),
    "raw": ("pan.tif", "ms.tif", {"as_published": True}),
    "bands": ("pan.tif", "ms.tif", {"bands": [3, 2, 1]}),
    "area": ("pan.tif", "ms.tif", {"aoi": "area.geojson"}),
    "window": ("pan.tif", "ms.tif", {"window": (17, 9, 100, 81)}),
    "masked": ("pan.tif", "ms_gaps.tif", {}),
    "partial": ("pan.tif", "ms_part.tif", {}),
    "reprojected": ("pan.tif", "ms_degrees.tif", {}),
    "apart": ("pan.tif", ["band_1.tif", "band_2.tif", "band_3.tif"], {}),
}


def gdal(*arguments):
    try:
        subprocess.run(arguments, check=True, stdout=subprocess.DEVNULL)
    except FileNotFoundError:
        pytest.skip(f"{arguments[0]} (gdal-bin) is not installed")


@pytest.fixture(scope="module")
def scenes(scene):
    """More images beside those of the scene."""
    ms = str(scene / "ms.tif")
    gdal("gdal_translate", "-q", "-srcwin", "10", "5", "30", "50", ms, str(scene / "ms_part.tif"))
    gdal("gdalwarp", "-q", "-t_srs", "EPSG:4326", "-r", "cubic", ms, str(scene / "ms_degrees.tif"))
    for band in (1, 2, 3):
        gdal("gdal_translate", "-q", "-b", str(band), ms, str(scene / f"band_{band}.tif"))
    # A no-data value that the darkest samples have.
    darkest = int(read(ms)[0].min())
    gdal("gdal_translate", "-q", "-a_nodata", str(darkest), ms, str(scene / "ms_gaps.tif"))
    ring = [[440010, 4474990], [440070, 4474980], [440080, 4474930], [440020, 4474920], [440010, 4474990]]
    area = {
        "type": "FeatureCollection",
        "crs": {"type": "name", "properties": {"name": "urn:ogc:def:crs:EPSG::32630"}},
        "features": [
            {"type": "Feature", "properties": {}, "geometry": {"type": "Polygon", "coordinates": [ring]}}
        ],
    }
    (scene / "area.geojson").write_text(json.dumps(area))
    return scene


def as_words(options):
    words = []
    for name, value in options.items():
        words.append("--" + name.replace("_", "-"))
        if value is not True:
            words.append(",".join(map(str, value)) if isinstance(value, (list, tuple)) else str(value))
    return words


@pytest.mark.parametrize("variant", VARIANTS)
@pytest.mark.parametrize("method", METHODS)
def test_files_are_those_of_the_command(scenes, tmp_path, monkeypatch, method, variant):
    monkeypatch.chdir(scenes)
    pan, ms, options = VARIANTS[variant]
    if method == "ihs" and variant != "apart":
        options = {"bands": [3, 2, 1], **options}
    if method == "ihs" and "bands" in options:
        options = {**options, "rgb": [1, 2, 3]}
    here, there = tmp_path / "here" / "fused.tif", tmp_path / "there" / "fused.tif"
    here.parent.mkdir()
    there.parent.mkdir()
    files = [ms] if isinstance(ms, str) else ms
    report = rsfusion.fuse(pan, ms, here, method=method, **options)
    told = json.loads(command("fuse", pan, *files, there, "--method", method, "--json", "--quiet", *as_words(options)))
    assert here.read_bytes() == there.read_bytes()
    # And without a file the samples are those of the file.
    assert (rsfusion.fuse(pan, ms, method=method, **options) == read(here)).all()
    for report_only in ("seconds", "output"):
        del told[report_only]
    assert {name: report.as_dict()[name] for name in told} == told
    assert report.output == str(here) and report.seconds > 0


def plain(values):
    """As JSON tells: no NaN, no infinities."""
    if isinstance(values, dict):
        return {name: plain(value) for name, value in values.items() if name != "seconds"}
    if isinstance(values, list):
        return [plain(value) for value in values]
    if isinstance(values, float) and math.isnan(values):
        return None
    if isinstance(values, float) and math.isinf(values):
        return "inf" if values > 0 else "-inf"
    return values


def test_reports_are_what_the_command_prints(scene, tmp_path, monkeypatch):
    monkeypatch.chdir(scene)
    pair = ("pan.tif", "ms.tif")
    fused = str(tmp_path / "fused.tif")
    rsfusion.fuse(*pair, fused, method="brovey")

    def told(*arguments):
        return plain(json.loads(command(*arguments)))

    assert plain(rsfusion.check(*pair).as_dict()) == told("check", *pair, "--json", "--quiet")
    assert plain(rsfusion.evaluate(*pair, fused).as_dict()) == told("evaluate", *pair, fused, "--json", "--quiet")
    assert plain(rsfusion.assess(*pair, protocol="wald", methods=["brovey", "pca"]).as_dict()) == told(
        "assess", *pair, "--protocol", "wald", "--methods", "brovey,pca", "--json", "--quiet"
    )
    assert plain(rsfusion.info(fused).as_dict()) == told("info", fused, "--json")
    assert plain(rsfusion.verify(fused).as_dict()) == told("verify", fused, "--json", "--quiet")
    assert [plain(method.as_dict()) for method in rsfusion.methods()] == told("methods", "--json")
    page, other = str(tmp_path / "a" / "page.html"), str(tmp_path / "b" / "page.html")
    (tmp_path / "a").mkdir()
    (tmp_path / "b").mkdir()
    report = plain(rsfusion.report(*pair, [fused], page, title="A title").as_dict())
    by_command = told("report", *pair, fused, "-o", other, "--title", "A title", "--json", "--quiet")
    assert {**report, "output": 0} == {**by_command, "output": 0}


def test_samples_are_those_of_the_command(tmp_path):
    rsfusion.sample(tmp_path / "here", size="64x48", seed=7, shift=(0.5, -0.25), bands=3)
    command("sample", tmp_path / "there", "--size", "64x48", "--seed", 7, "--shift", "0.5,-0.25", "--bands", 3)
    for name in ("pan.tif", "ms.tif", "truth.tif"):
        assert (tmp_path / "here" / name).read_bytes() == (tmp_path / "there" / name).read_bytes()


def options_of(kind):
    """The names in the table of a kind of request."""
    text = (SOURCE / "runs/options.cpp").read_text()
    table = re.search(rf"k{kind}Options\[\] = {{(.*?)\n}};", text, re.S).group(1)
    return {name.replace("-", "_") for name in re.findall(r'[({]"([a-z-]+)"', table)}


@pytest.mark.parametrize(
    "function, kind, beside",
    [
        (rsfusion.fuse, "Fuse", {"more_ms"}),
        (rsfusion.check, "Check", {"more_ms"}),
        (rsfusion.evaluate, "Evaluate", {"more_ms"}),
        (rsfusion.assess, "Assess", {"more_ms"}),
        (rsfusion.report, "Report", {"more_ms"}),
        (rsfusion.sample, "Sample", set()),
    ],
)
def test_arguments_are_the_options(function, kind, beside):
    import inspect

    options = options_of(kind)
    assert len(options) > 9
    ours = {"progress", "pan_transform", "ms_transform", "fused_transform", "crs", "pan_crs", "ms_crs"}
    assert set(inspect.signature(function).parameters) - ours == options - beside


def test_arguments_have_the_effect_of_the_options(scene, tmp_path):
    # Of each kind of value one: text, number, list, switch, several.
    rsfusion.fuse(
        scene / "pan.tif", scene / "ms.tif", tmp_path / "a.tif", method="hpf", kernel_size=7, detail_weight=0.25,
        bands=[4, 2], make_green=False, co={"TILED": "YES", "BLOCKXSIZE": 64, "BLOCKYSIZE": 64}, compress="DEFLATE",
    )  # fmt: skip
    told = rsfusion.info(tmp_path / "a.tif").options
    assert told == (
        "--method hpf --bands 4,2 --kernel-size 7 --detail-weight 0.25 --compress DEFLATE "
        "--co TILED=YES --co BLOCKXSIZE=64 --co BLOCKYSIZE=64"
    )
