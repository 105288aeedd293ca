"""Makes a model that other people have into one ONNX file that describes itself and meets the contract.

    scripts/adapt_model.py mdx FILE.onnx OUT.onnx --frame-length 6144       MDX-Net
    scripts/adapt_model.py openunmix vocals.pth [drums.pth …] OUT.onnx      Open-Unmix, one checkpoint per target
    scripts/adapt_model.py unet CHECKPOINT|FOLDER [more …] OUT.onnx         stem U-Nets, two, four or five stems
    scripts/adapt_model.py plain MODEL.onnx OUT.onnx [--swap] [--gain G]    any other that nearly fits

Needs Debian's python3-numpy and python3-onnx, and no PyTorch. Then: tavrin-model inspect OUT.onnx
"""

import argparse
import os
from pathlib import Path
import sys

import onnx

from . import graph, half, mdx, openunmix, unet, unet_layouts, weights, wrap

UNET_FRAMES = 512

# Frames to see on both sides of a frame, where a call has four times as many. docs/models.md has what they bring.
CONTEXT = {"mdx": 16, "openunmix": 32, "unet": 32}


def stem_of(text):
    """NAME=FILE, or a file whose name begins with the target's: vocals-b62c91ce.pth."""
    name, equals, file = text.partition("=")
    return (name, Path(file)) if equals else (Path(text).stem.split("-")[0], Path(text))


def adapt_mdx(options):
    model = wrap.read(options.models[0])
    length = mdx.frame_length(model, options.frame_length)
    stems = options.stems or [mdx.stem_name(Path(options.models[0]))]
    gain = options.compensate
    wrapping = wrap.Wrapping(
        length // 2, options.frames, swap=True, gain_out=gain, real_dc=True, invert=options.invert, names=stems
    )
    metadata = {"frame_length": length, "hop": mdx.HOP, "window": "hann"}
    return wrap.wrap(model, wrapping, metadata), (
        f"frames of {length} samples every {mdx.HOP}; times {gain:g}{', taken from the mix' * options.invert}; "
        f"the stem is called '{stems[0]}'"
    )


def read_all(texts):
    """{stem: weights by name}"""
    targets = [stem_of(text) for text in texts]
    if len({name for name, _ in targets}) < len(targets):
        raise weights.WeightsError("two files have the same name for their stem; NAME=FILE gives each its own")
    return {name: weights.load(file) for name, file in targets}


def adapt_openunmix(options):
    targets = read_all(options.models)
    model = openunmix.build(targets, {}, options.frames or openunmix.FRAMES, options.apart)
    shared = len(targets) > 1 and not options.apart
    return model, f"{', '.join(targets)}; " + (
        "the stems share out the whole mix (--apart leaves each estimate as it is)"
        if shared
        else "a mask each, by itself"
    )


def adapt_unet(options):
    networks = unet_layouts.networks(read_all(options.models), options.stems)
    activation = options.activation or ("relu" if len(networks) < 3 else "elu")
    mask = options.mask or ("softmax" if len(networks) == 5 else "sigmoid")
    metadata = {"frame_length": 4096, "hop": 1024, "window": "hann"}
    above = options.above
    model = unet.model(networks, options.frames or UNET_FRAMES, metadata, activation=activation, mask=mask, above=above)
    return model, f"{', '.join(networks)}; activation {activation}, mask {mask}, above the network's bins: {above}"


def adapt_plain(options):
    model = wrap.read(options.models[0])
    half_frame = (options.frame_length or 4096) // 2
    gain = options.gain
    wrapping = wrap.Wrapping(half_frame, options.frames, options.bins, options.swap, gain, names=options.stems)
    keys = "frame_length", "hop", "window"
    metadata = {key: getattr(options, key) for key in keys if getattr(options, key)}
    return wrap.wrap(model, wrapping, metadata), (
        f"frames of {2 * half_frame} samples, {options.window or 'blackman'} window, unless the model says otherwise"
    )


def above_zero(kind):
    def parse(text):
        value = kind(text)
        if not 0 < value < float("inf"):
            raise ValueError(text)
        return value

    parse.__name__ = f"{kind.__name__} above 0"
    return parse


def names(text):
    found = [name.strip() for name in text.split(",")]
    if not all(found) or len(set(found)) < len(found):
        raise ValueError(text)
    return found


def arguments():
    parser = argparse.ArgumentParser(description="Makes a model that other people have meet the contract.")
    families = parser.add_subparsers(dest="family", required=True, metavar="FAMILY")
    count, number = above_zero(int), above_zero(float)

    def family(name, function, text, several=False):
        added = families.add_parser(name, help=text, description=text)
        added.set_defaults(function=function)
        added.add_argument("models", nargs="+" if several else 1, metavar="IN")
        added.add_argument("out", metavar="OUT")
        added.add_argument("--frames", type=count, help="frames of one model call (256, or as the file says)")
        added.add_argument("--context", type=count, help="frames that the model is to see on both sides of a frame")
        added.add_argument("--sample-rate", type=count, help="Hz that the model was trained on (44100)")
        added.add_argument("--half", action="store_true", help="store weights in half precision: half the size")
        for key in ("title", "licence", "source"):
            added.add_argument(f"--{key}", help="for people, kept in the file")
        return added

    added = family("mdx", adapt_mdx, "MDX-Net, an ONNX file of [batch, 4, bins, frames]")
    added.add_argument("--frame-length", type=count, choices=mdx.FRAME_LENGTHS, help="samples of a frame (n_fft)")
    added.add_argument("--compensate", type=number, default=1.0, help="multiply the stem")
    added.add_argument("--invert", action="store_true", help="the file gives what is to be left out")
    added.add_argument("--stems", type=names, default=[], help="name of the stem")

    added = family("openunmix", adapt_openunmix, "Open-Unmix, a checkpoint per target: FILE or NAME=FILE", several=True)
    added.add_argument("--apart", action="store_true", help="several targets do not share out the mix")

    added = family("unet", adapt_unet, "stem U-Nets: FILE, FOLDER or NAME=FILE", several=True)
    added.add_argument("--activation", choices=unet.ACTIVATIONS, help="(relu for two stems, elu for more)")
    added.add_argument("--mask", choices=unet.MASKS, help="(softmax for five stems, sigmoid otherwise)")
    added.add_argument("--above", choices=unet.ABOVE, default="silence", help="bins above the network's (silence)")
    added.add_argument("--stems", type=names, default=[], help="names of the networks, separated by commas")

    added = family("plain", adapt_plain, "a model that nearly fits")
    added.add_argument("--swap", action="store_true", help="the model's spectra are [1, 4, bins, frames]")
    added.add_argument("--gain", type=number, default=1.0, help="multiply what goes in, and divide what comes out")
    added.add_argument("--bins", type=count, help="bins from DC up, if the model leaves them open")
    added.add_argument("--frame-length", type=count, help="samples of a frame (4096)")
    added.add_argument("--hop", type=count, help="samples from frame to frame (1024)")
    added.add_argument("--window", choices=("blackman", "hann"), help="(blackman)")
    added.add_argument("--stems", type=names, default=[], help="names of the outputs, separated by commas")
    return parser.parse_args()


def main():
    options = arguments()
    files = [stem_of(text)[1] if options.family in ("openunmix", "unet") else Path(text) for text in options.models]
    try:
        if os.path.exists(options.out) and any(file.exists() and os.path.samefile(file, options.out) for file in files):
            raise wrap.WrapError(f"{options.out}: would replace the original; name another file")
        model, assumed = options.function(options)
        frames = wrap.dimensions(model.graph.output[0])[2]
        if options.context and 2 * options.context >= frames:
            raise wrap.WrapError(f"--context {options.context}: leaves none of the model's {frames} frames")
        if options.family in CONTEXT:
            options.context = options.context or min(CONTEXT[options.family], frames // 4)
        said = {key: getattr(options, key) for key in ("context", "sample_rate", "title", "licence", "source")}
        kept = {entry.key: entry.value for entry in model.metadata_props}
        onnx.helper.set_model_props(model, kept | {f"tavrin.{key}": str(v) for key, v in said.items() if v})
        if options.half:
            half.halve(model)
        note = wrap.check(model)
        graph.save(model, options.out)
    except (wrap.WrapError, weights.WeightsError, OSError, ValueError) as reason:
        sys.exit(f"adapt_model.py: {' '.join(str(reason).split())}")
    print(f"{options.out}: {options.family}; {assumed}{'; ' + note if note else ''}")


if __name__ == "__main__":
    main()
