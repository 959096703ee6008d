"""What is to be run: a command of fusion, its files and its options, and how the command takes them."""
import dataclasses
import typing


@dataclasses.dataclass
class Job:
    """Options go by the command's names: True is a switch, a list has commas, a tuple is an argument each."""

    command: str
    pan: str = ""
    ms: typing.List[str] = dataclasses.field(default_factory=list)
    fused: typing.List[str] = dataclasses.field(default_factory=list)
    out: str = ""  # the image, the page or, of a sample, the folder
    options: typing.Dict[str, typing.Any] = dataclasses.field(default_factory=dict)

    def without_defaults(self):
        """The options that have been given."""
        return {
            name: value
            for name, value in self.options.items()
            if value is not None and value is not False and value not in ("", [], ())
        }


def _file(name):
    return "./" + name if name.startswith("-") else name


def text_of(value):
    return ",".join(str(part) for part in value) if isinstance(value, list) else str(value)


def arguments(job):
    """The command's arguments, without its own name."""
    ms = [_file(name) for name in job.ms]
    fused = [_file(name) for name in job.fused]
    if job.command == "sample":
        found = ["sample", _file(job.out)]
    elif job.command == "report":
        # All files behind PAN are fused ones then.
        found = ["report", _file(job.pan), *(f"--ms={name}" for name in job.ms), *fused, f"--out={job.out}"]
    else:
        found = [job.command, _file(job.pan), *ms, *fused]
        if job.out:
            found.append(f"--out={job.out}")
    for name, value in job.without_defaults().items():
        if value is True:
            found.append(f"--{name}")
        elif isinstance(value, tuple):
            found += [f"--{name}={part}" for part in value]
        else:
            found.append(f"--{name}={text_of(value)}")
    # A sample has nothing to tell beside its files.
    return found if job.command == "sample" else [*found, "--json"]
