"""Finds the networks of a stem U-Net in what people have of it, and names their arrays as unet.py wants them.

Two layouts are known: that of the PyTorch ports, one network per file or several with the stem before the name
(vocals.down1_conv.1.weight), and that of the TensorFlow originals, all networks in a row:

    conv2d, conv2d_1 …                  .kernel [5, 5, in, out], .bias: six downwards and the mask's per network
    conv2d_transpose …                  .kernel [5, 5, out, in], .bias: six per network
    batch_normalization …               .gamma, .beta, .moving_mean, .moving_variance: twelve per network
"""

from .weights import WeightsError

DOWN = "down1_conv.1.weight"
STEMS = {
    1: ["vocals"],
    2: ["vocals", "accompaniment"],
    4: ["vocals", "drums", "bass", "other"],
    5: ["vocals", "piano", "drums", "bass", "other"],
}
NORM = {"weight": "gamma", "bias": "beta", "running_mean": "moving_mean", "running_var": "moving_variance"}


def networks(files, stems):
    """{stem: arrays by name} of {name of the file: weights}."""
    found = {}
    for name, weights in files.items():
        weights = {key.replace("/", ".").removesuffix(":0"): array for key, array in weights.items()}
        if "conv2d.kernel" in weights:
            found |= _originals(weights, stems)
        elif DOWN in weights:
            found[name] = weights
        else:
            prefixes = [key.removesuffix("." + DOWN) for key in weights if key.endswith("." + DOWN)]
            if not prefixes:
                some = ", ".join(sorted(weights)[:3])
                raise WeightsError(
                    f"{name}: no stem U-Net, there is neither '{DOWN}' nor 'conv2d.kernel' (it has {some}, …)"
                )
            for prefix in prefixes:
                start = prefix + "."
                found[prefix] = {key.removeprefix(start): a for key, a in weights.items() if key.startswith(start)}
    if stems and len(stems) != len(found):
        raise WeightsError(f"there are {len(found)} networks; --stems names {len(stems)}")
    return dict(zip(stems, found.values())) if stems else found


def _originals(weights, stems):
    count = 1
    while _numbered("conv2d", 7 * count, "kernel") in weights:
        count += 1
    names = stems or STEMS.get(count) or [f"stem{i + 1}" for i in range(count)]
    return {name: _original(weights, network) for network, name in enumerate(names[:count])}


def _original(weights, network):
    def get(kind, number, part):
        key = _numbered(kind, number, part)
        if key not in weights:
            raise WeightsError(f"network {network + 1}: '{key}' is missing")
        return weights[key]

    def kernel(kind, number):
        array = get(kind, number, "kernel")
        if array.ndim != 4:
            raise WeightsError(
                f"'{_numbered(kind, number, 'kernel')}' is {list(array.shape)}; four dimensions are needed"
            )
        return array.transpose(3, 2, 0, 1)

    arrays = {}
    for level in range(1, 8):  # the seventh gives the mask
        number = 7 * network + level - 1
        name = f"down{level}_conv.1" if level < 7 else "up7.0"
        arrays |= {f"{name}.weight": kernel("conv2d", number), f"{name}.bias": get("conv2d", number, "bias")}
    for level in range(1, 7):
        number = 6 * network + level - 1
        arrays[f"up{level}.0.weight"] = kernel("conv2d_transpose", number)
        arrays[f"up{level}.0.bias"] = get("conv2d_transpose", number, "bias")
        for name, place in ((f"down{level}_act.0", level - 1), (f"up{level}.3", level + 5)):
            for part, original in NORM.items():
                arrays[f"{name}.{part}"] = get("batch_normalization", 12 * network + place, original)
    return arrays


def _numbered(kind, number, part):
    return f"{kind}_{number}.{part}" if number else f"{kind}.{part}"
