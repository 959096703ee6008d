"""The options of the commands, as the dialogs show them."""
import dataclasses
import typing

SWITCH, CHOICE, WHOLE, NUMBER, TEXT, FILE = "switch", "choice", "whole", "number", "text", "file"


@dataclasses.dataclass(frozen=True)
class Option:
    """One that a dialog asks for by its kind alone."""

    name: str  # the command's, without dashes
    kind: str
    title: str
    help: str = ""
    # Of a choice, the default first, which is not given to the command.
    choices: typing.Tuple[str, ...] = ()
    titles: typing.Tuple[str, ...] = ()
    least: typing.Optional[float] = None
    most: typing.Optional[float] = None
    default: typing.Any = None
    advanced: bool = True

    @property
    def parameter(self):
        return self.name.upper().replace("-", "_")

    def shown(self):
        return self.titles or self.choices


# Their order is that of the numbers which saved models have: new ones come last.
METHODS = {
    "bayesian": "the likeliest image, keeps colours; suits nearly always",
    "brovey": "each band times pan over the sum of the bands",
    "multiplicative": "each band times pan",
    "weighted": "mean of band and pan, weighted by their correlation",
    "ihs": "pan in place of the intensity of three bands",
    "pca": "pan in place of the first principal component",
    "hpf": "bands plus the high-pass filtered pan",
    "sharpen": "bands times the ratio of pan to its mean, plus pan",
    "best": "the one that an assessment of the scene finds best",
}
METHOD = Option(
    "method",
    CHOICE,
    "Method",
    "How detail is added; 'fusion methods NAME' explains each.",
    choices=tuple(METHODS),
    titles=tuple(f"{name} - {text}" for name, text in METHODS.items()),
    advanced=False,
)

TYPES = ("uint8", "uint16", "int16", "uint32", "int32", "float32", "float64")
FORMATS = {
    "": "by the extension of the file",
    "GTiff": "GeoTIFF",
    "COG": "Cloud-optimized GeoTIFF",
    "HFA": "Erdas Imagine",
    "ENVI": "ENVI",
    "JP2OpenJPEG": "JPEG 2000",
    "PNG": "PNG",
    "JPEG": "JPEG",
}

NO_DATA = Option("nodata", NUMBER, "No-data value of images that declare none")
SAME_EXTENT = Option("same-extent", SWITCH, "Take both images as covering the same ground")
THREADS = Option("threads", WHOLE, "Threads (empty: all)", least=1)
REFERENCES = (
    Option("allow-network", SWITCH, "Let what images refer to be read across the network"),
    Option("confined", SWITCH, "Let images refer to nothing outside their folders"),
)
# What all commands that read images have.
COMMON = (SAME_EXTENT, *REFERENCES, THREADS)

FUSE = (
    METHOD,
    Option(
        "spectral-match",
        CHOICE,
        "Spectral matching",
        "Brings the fused bands to the multispectral means and deviations.",
        choices=("auto", "on", "off"),
    ),
    Option("resample", CHOICE, "Resampling", choices=("auto", "nearest", "bilinear", "bicubic")),
    Option("type", CHOICE, "Pixel type", choices=("", *TYPES), titles=("that of the multispectral image", *TYPES)),
    Option("rgb", TEXT, "ihs: red, green and blue among the chosen bands (3,2,1)"),
    Option("bayes-weight", NUMBER, "bayesian: weight of the model, 0 to 1 (empty: 0.5)", least=0, most=1),
    Option(
        "registration", CHOICE, "bayesian: move the multispectral image onto pan", choices=("auto", "off", "report")
    ),
    Option("kernel-size", WHOLE, "hpf: size of the kernel, odd (empty: by the ratio of the pixels)", least=3, most=31),
    Option("detail-weight", NUMBER, "hpf: weight of the detail (empty: 0.5)"),
    Option("second-kernel-size", WHOLE, "hpf: size of a second kernel, odd", least=3, most=31),
    Option("second-detail-weight", NUMBER, "hpf: weight of the second detail"),
    Option("make-green", SWITCH, "Mix a tenth of near infrared into green (bands blue, green, red, infrared)"),
    Option("auto-level", SWITCH, "hpf, sharpen: end with an automatic level adjustment"),
    Option("stretch", SWITCH, "Stretch the result to the range of an integer type"),
    Option("nodata-mask", CHOICE, "Take pixels without data for missing", choices=("auto", "on", "off")),
    NO_DATA,
    Option(
        "statistics",
        CHOICE,
        "What an extent's statistics are taken from",
        "With 'scene' the result is a crop of that of the whole scene.",
        choices=("scene", "window"),
    ),
    Option("edges", CHOICE, "Guard: edges of the multispectral image", choices=("repeat", "off")),
    Option("match-moments", CHOICE, "Guard: moments of the matching", choices=("robust", "plain")),
    Option("product-root", CHOICE, "Guard, multiplicative: match the root of the product", choices=("auto", "off")),
    Option("detail-cap", CHOICE, "Guard, hpf: cap the weight of the detail", choices=("auto", "off")),
    Option("pca-match", CHOICE, "Guard, pca: bring pan to the first component", choices=("auto", "off")),
    Option("keep-bands", CHOICE, "Guard, weighted: keep bands without a weight", choices=("auto", "off")),
    Option("as-published", SWITCH, "As published: no guard, no matching or mask unless asked for"),
    Option("format", CHOICE, "Format", choices=tuple(FORMATS), titles=tuple(FORMATS.values())),
    Option("no-overviews", SWITCH, "Build no overviews"),
    Option("no-provenance", SWITCH, "Let the image not tell how it was made"),
    Option("sync", SWITCH, "End when the image lies on the disk"),
    *COMMON,
)

CHECK = (NO_DATA, *COMMON)

METRICS = ("entropy", "statistics", "snr", "gradient")
EVALUATE = COMMON

ASSESS = (
    Option(
        "protocol",
        CHOICE,
        "Protocol",
        "wald: both images degraded, the multispectral one is the truth; full: as they are.",
        choices=("both", "wald", "full"),
        advanced=False,
    ),
    Option("mtf", TEXT, "Gains of the filters, G or G,P (empty: by the blur between the images)"),
    Option("tiles", WHOLE, "The most parts of a large scene to look at (empty: 16)", least=1),
    NO_DATA,
    *COMMON,
)

REPORT = (Option("title", TEXT, "Title of the page", advanced=False), NO_DATA, *COMMON)

SAMPLE = (
    Option("size", TEXT, "Size in pan pixels, N or WxH", default="1024", advanced=False),
    Option("seed", WHOLE, "Seed: another one gives another landscape", least=0, default=1, advanced=False),
    Option("bands", WHOLE, "Multispectral bands", least=1, most=16, default=4, advanced=False),
    Option("ratio", WHOLE, "Multispectral over pan pixel", least=1, most=16, default=4, advanced=False),
    Option("type", CHOICE, "Pixel type", choices=("uint16", "uint8", "int16", "uint32", "int32", "float32", "float64")),
    Option("shift", TEXT, "Shift of the multispectral picture, DX,DY in pan pixels"),
    Option("noise", NUMBER, "Standard deviation of the noise; 1 is the brightest white", least=0, most=1),
    Option("clouds", NUMBER, "Share of the scene that clouds hide", least=0, most=1),
    Option("overwrite", SWITCH, "Replace the files of an earlier sample in the folder", advanced=False),
)
