"""Which bands look like what eyes see."""
import re

NAMES = ("red", "green", "blue")


def _shows(name, colour):
    """Whether one of the words of a band's name is a colour's. A red edge and near infrared are none."""
    words = re.findall("[a-z]+", name.lower())
    return colour in words and not {"edge", "near", "infra"} & set(words)


def natural_bands(colours, names):
    """The bands, from 0, for red, green and blue: what the file says of them, else their names, else the usual order.

    colours: of each band "red", "green", "blue" or something else. One band alone is grey.
    """
    for said in (
        [[colour == wanted for colour in colours] for wanted in NAMES],
        [[_shows(name, wanted) for name in names] for wanted in NAMES],
    ):
        if all(any(bands) for bands in said):
            return [bands.index(True) for bands in said]
    # Four and more bands mostly begin with blue.
    return {1: [0], 2: [0, 1, 1], 3: [0, 1, 2]}.get(len(colours), [2, 1, 0])
