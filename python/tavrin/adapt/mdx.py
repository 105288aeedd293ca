"""Adapts MDX-Net files: ONNX models of [batch, 4, bins, frames], real and imaginary part of left and right, for spectra
of periodic Hann windows every 1024 samples. Bins above the model's stay out of the stem."""

from . import wrap

HOP = 1024
FRAME_LENGTHS = 4096, 5120, 6144, 7680, 8192, 16384
STEMS = "vocals", "drums", "bass", "other", "instrumental"


def frame_length(model, asked):
    """As the user says, or as the number of bins says if that leaves one choice."""
    found = wrap.dimensions(wrap.spectra(model.graph)[0][0])
    bins, frames = found[2:]
    if isinstance(bins, int) and isinstance(frames, int) and bins < frames and frames >= 2048:
        raise wrap.WrapError(f"the input is {found}; MDX-Net has bins before frames. Try the family plain")
    fits = [length for length in FRAME_LENGTHS if isinstance(bins, str) or bins <= length // 2 + 1]
    if asked:
        if isinstance(bins, int) and bins > asked // 2 + 1:
            raise wrap.WrapError(f"the file has {bins} bins; frames of {asked} samples have {asked // 2}")
        return asked
    if len(fits) != 1:
        raise wrap.WrapError(
            f"{bins} bins go with frames of {', '.join(map(str, fits)) or 'no known number of'} samples; say which "
            "with --frame-length (whoever publishes the file does, often as n_fft)"
        )
    return fits[0]


def stem_name(path):
    """What the file's name says of its content."""
    text = path.stem.lower()
    return next((stem for stem in STEMS if stem[:4] in text), "stem")
