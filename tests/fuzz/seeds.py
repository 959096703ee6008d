"""Makes what the fuzz targets begin with, and the words that they are told: seeds.py FOLDER."""
import pathlib
import random
import re
import struct
import sys

FOLDER = pathlib.Path(sys.argv[1])


def seed(target, name, content):
    folder = FOLDER / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content if isinstance(content, bytes) else content.encode())


def words(target, *texts):
    lines = ['"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"' for text in texts]
    FOLDER.mkdir(parents=True, exist_ok=True)
    (FOLDER / f"{target}.dict").write_text("\n".join(lines) + "\n")


def tiff(width, height, bands, bits=8, more=()):
    samples = bytes((i * 37) % 251 for i in range(width * height * bands * bits // 8))
    tags = [(256, 3, 1, width), (257, 3, 1, height), (258, 3, 1, bits), (259, 3, 1, 1), (262, 3, 1, 1),
            (273, 4, 1, 0), (277, 3, 1, bands), (278, 3, 1, height), (279, 4, 1, len(samples)), *more]
    start = 8 + 2 + 12 * len(tags) + 4
    head = struct.pack("<2sHIH", b"II", 42, 8, len(tags))
    for tag, kind, count, value in sorted(tags):
        head += struct.pack("<HHII", tag, kind, count, start if tag == 273 else value)
    return head + struct.pack("<I", 0) + samples


MOSAIC = ('<VRTDataset rasterXSize="8" rasterYSize="8"><GeoTransform>0,1,0,0,0,-1</GeoTransform>'
          '<VRTRasterBand dataType="Byte" band="1"><NoDataValue>0</NoDataValue><SimpleSource>'
          '<SourceFilename relativeToVRT="1">in.tif</SourceFilename><SourceBand>1</SourceBand></SimpleSource>'
          '</VRTRasterBand></VRTDataset>')
HEADER = "ENVI\nsamples = 8\nlines = 8\nbands = 1\ndata type = 1\ninterleave = bsq\nbyte order = 0\n" + "x" * 64
POLYGON = ('{"type":"FeatureCollection","features":[{"type":"Feature","properties":{},"geometry":{"type":"Polygon",'
           '"coordinates":[[[0,0],[5,0],[5,5],[0,0]]]}}]}')

seed("raster", "plain.tif", b"\0" + tiff(8, 8, 1))
seed("raster", "bands.tif", b"\x40" + tiff(5, 7, 3, 16))
seed("raster", "turned.tif", b"\x80" + tiff(8, 8, 1))
seed("raster", "mosaic.vrt", b"\1" + MOSAIC.encode())
seed("raster", "header.dat", b"\3" + HEADER.encode())
seed("area", "polygon.geojson", b"\0" + POLYGON.encode())
seed("area", "polygon.csv", b"\2" + b'WKT,id\n"POLYGON((0 0,5 0,5 5,0 0))",1\n')
seed("area", "polygon.kml", b"\3<kml><Document><Placemark><Polygon><outerBoundaryIs><LinearRing><coordinates>0,0 5,0 5,5 "
     b"0,0</coordinates></LinearRing></outerBoundaryIs></Polygon></Placemark></Document></kml>")
seed("area", "layer.vrt", b"\4<OGRVRTDataSource><OGRVRTLayer name='a'><SrcDataSource>area.csv</SrcDataSource>"
     b"<GeometryField encoding='WKT' field='WKT'/></OGRVRTLayer></OGRVRTDataSource>")

words("raster", "II*", "MM", "<SourceFilename>", "<VRTRasterBand>", "subClass=", "relativeToVRT=", "VRTDerivedRasterBand",
      "<MaskBand>", "<Overview>", "<GeoTransform>", "<GCPList>", "nan", "inf", "EHFA_HEADER_TAG", "samples = ", "<SRS>")
words("area", "MultiPolygon", "GeometryCollection", "coordinates", "1e308", "-1e308", "NaN", "CURVEPOLYGON", "EMPTY",
      "EPSG:4326", "EPSG:32630", "SQLite format 3", "<coordinates>")

# Every option that the reader is told of is a word, every command of the examples a beginning.
USAGE = (pathlib.Path(__file__).resolve().parents[2] / "docs/usage.md").read_text()
for number, line in enumerate(re.findall(r"^\$ fusion (.*)$", USAGE, re.MULTILINE)):
    seed("arguments", f"example{number}", "\0".join(line.replace("'", "").split()))
seed("arguments", "options", "fuse\n--window\n0,0,5,5\n--bands\n1,2\n--nodata\n-1e3\n--co\nCOMPRESS=LZW\n--type\nuint8")
words("arguments", *sorted(set(re.findall(r"--[a-z][a-z0-9-]+", USAGE))), "-of", "-co", "-ot", "-b", "-srcwin", "auto", "off",
      "on", "nan", "1e308", "-1", "99999999999999999999", "0x10", "1,2,3")

dice = random.Random(1)
for number in range(20):
    seed("definition", f"draw{number}", dice.randbytes(200))
words("definition")
