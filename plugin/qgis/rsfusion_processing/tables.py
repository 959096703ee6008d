"""What runs found out, as pages for the results of Processing."""
import html
import math

STYLE = (
    "body{font-family:sans-serif}table{border-collapse:collapse;margin:0 0 1em}"
    "td,th{padding:2px 8px;text-align:right;border-bottom:1px solid #ccc}td:first-child,th:first-child{text-align:left}"
)


def page(title, *parts):
    return (
        f'<!DOCTYPE html>\n<html><head><meta charset="utf-8"><title>{html.escape(title)}</title><style>{STYLE}</style>'
        f"</head>\n<body>\n<h1>{html.escape(title)}</h1>\n" + "\n".join(parts) + "\n</body></html>\n"
    )


def paragraph(text):
    return f"<p>{html.escape(text)}</p>"


def heading(text):
    return f"<h2>{html.escape(text)}</h2>"


def shown(value):
    """A figure as a person reads it."""
    if value is None:
        return "-"
    if isinstance(value, float) and math.isfinite(value):
        return f"{value:.5g}" if abs(value) < 1e5 else f"{value:.0f}"
    return str(value)


def table(head, rows):
    def line(cells, tag):
        return "<tr>" + "".join(f"<{tag}>{html.escape(shown(cell))}</{tag}>" for cell in cells) + "</tr>"

    return "<table>\n" + "\n".join([line(head, "th"), *(line(row, "td") for row in rows)]) + "\n</table>"


def evaluation(outcome):
    parts = []
    for metric, figures in outcome.items():
        bands = max((len(values) for values in figures.values()), default=0)
        # The entropies of multispectral and fused bands stand in one list.
        if metric == "entropy":
            bands //= 2
        rows = []
        for name, values in figures.items():
            if len(values) > bands:
                rows += [[f"{name} (multispectral)", *values[:bands]], [f"{name} (fused)", *values[bands:]]]
            else:
                rows.append([name, *values])
        parts += [heading(metric), table(["", *(f"band {band + 1}" for band in range(bands))], rows)]
    return page("Evaluation", *parts)


def _image(image):
    width, height = image["size"]
    return [
        f"{width}x{height}",
        image["bands"],
        image["type"],
        " x ".join(shown(side) for side in image["pixel"]),
        image["coordinate_system"],
        _percent(image["overlap"]),
    ]


def _percent(share):
    return "-" if share is None else f"{share * 100:.4g} %"


def check(outcome):
    parts = []
    for warning in outcome["warnings"]:
        parts.append(f"<p><b>{html.escape(warning['text'])}</b> {html.escape(warning.get('advice', ''))}</p>")
    if outcome["fine"]:
        parts.append(paragraph("Nothing stands against fusing them."))
    parts += [paragraph(note["text"]) for note in outcome["notes"]]
    names = ["size", "bands", "type", "pixel", "coordinate system", "on common ground"]
    parts += [
        heading("Images"),
        table(["", "pan", "multispectral"], zip(names, _image(outcome["pan"]), _image(outcome["ms"]))),
    ]
    pair = [["ratio of the pixels", " x ".join(shown(side) for side in outcome["ratio"])]]
    if outcome.get("shift"):
        shift = outcome["shift"]
        pair.append(
            [
                "shift that puts the bands on pan (pan pixels right, down)",
                f"{shift['dx']:+.2f}, {shift['dy']:+.2f}; spread {shift['spread'][0]:.2f}, {shift['spread'][1]:.2f}",
            ]
        )
    if outcome.get("blur"):
        pair.append(["blur that makes pan look like the bands (pan pixels)", outcome["blur"]["pan_pixels"]])
    pair.append(["correlation of the best mix of bands with pan", outcome.get("mix_correlation")])
    parts += [heading("Pair"), table(["", ""], pair)]
    bands = [["pan", *_band(outcome["pan_band"])]] if outcome.get("pan_band") else []
    bands += [
        [band["name"] or f"band {number}", *_band(band), band["pan_ratio"], band["correlation"], band["detail"]]
        for number, band in enumerate(outcome["bands"], 1)
    ]
    if bands:
        parts += [
            heading("Bands"),
            table(
                ["", "minimum", "maximum", "mean", "deviation", "no data", "pan/band", "correlation", "of detail"],
                bands,
            ),
        ]
    return page("Check of a pair of images", *parts)


def _band(band):
    no_data = band["no_data"]
    return [
        band["minimum"],
        band["maximum"],
        band["mean"],
        band["deviation"],
        _percent(no_data) if isinstance(no_data, (int, float)) else shown(no_data),
    ]


def assessment(outcome):
    parts = [paragraph(outcome["advice"])]
    for protocol in ("wald", "full"):
        if protocol not in outcome:
            continue
        rows, best = outcome[protocol]["rows"], outcome[protocol]["best"]
        lines = [
            [row["method"], *(shown(row.get(name)) + ("*" if best[name] == row["method"] else "") for name in best)]
            for row in rows
        ]
        parts += [heading(protocol), table(["", *best], lines)]
    parts += [paragraph(f"{failure['method']} is left out: {failure['message']}") for failure in outcome["failures"]]
    return page("Assessment of the methods", *parts)
