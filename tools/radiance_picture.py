"""Reads Radiance pictures (.hdr) and measures how far one is from another. Needs Python alone."""

import array
import math
import sys


def read(path):
    """Width, height and a flat array of width x height x 3 floats, row by row from the top. RGBE keeps 8 bits of each
    channel's value relative to the largest: an error of 0.2 to 0.4 %, the same for every picture."""
    with open(path, "rb") as file:
        data = file.read()
    header = data.index(b"\n\n") + 2
    end = data.index(b"\n", header)
    first, height, second, width = data[header:end].split()
    if not data.startswith(b"#?") or (first, second) != (b"-Y", b"+X"):
        raise ValueError(f"{path}: not a Radiance picture from top to bottom")
    width, height, at = int(width), int(height), end + 1
    pixels = array.array("f")
    for _ in range(height):
        row, at = scanline(data, at, width)
        for r, g, b, e in zip(*row):
            scale = math.ldexp(1.0, e - 136) if e else 0.0
            pixels.extend((r * scale, g * scale, b * scale))
    return width, height, pixels


def scanline(data, at, width):
    """The four planes of one row and where the next begins: runs of each plane, or pixel by pixel."""
    if not (8 <= width < 32768 and data[at:at + 4] == bytes((2, 2, width >> 8, width & 255))):
        return [data[at + plane:at + 4 * width:4] for plane in range(4)], at + 4 * width
    at += 4
    planes = []
    for _ in range(4):
        plane = bytearray()
        while len(plane) < width:
            count = data[at]
            if count > 128:
                plane += data[at + 1:at + 2] * (count - 128)
                at += 2
            else:
                plane += data[at + 1:at + 1 + count]
                at += 1 + count
        planes.append(plane)
    return planes, at


def luminances(path):
    """Rec. 709 luminance of each pixel."""
    _, _, p = read(path)
    return [0.2126 * r + 0.7152 * g + 0.0722 * b for r, g, b in zip(p[::3], p[1::3], p[2::3])]


def errors(picture, reference):
    """Of two lists of luminances: root mean square and mean of the differences, both over the reference's mean, and the
    same without the worst thousandth of all pixels, whose few bright dots otherwise decide the first."""
    mean = sum(reference) / len(reference)
    differences = sorted((a - b for a, b in zip(picture, reference)), key=abs)
    most = differences[:len(differences) - math.ceil(len(differences) / 1000)]
    return tuple(value / mean for d in (differences, most)
                 for value in (math.sqrt(sum(x * x for x in d) / len(d)), sum(d) / len(d)))


def main():
    if len(sys.argv) < 3:
        sys.exit("usage: radiance_picture.py reference.hdr picture.hdr...")
    reference = luminances(sys.argv[1])
    for path in sys.argv[2:]:
        rmse, bias, most_rmse, most_bias = (100 * e for e in errors(luminances(path), reference))
        print(f"{path}: rmse {rmse:.2f} %, bias {bias:+.2f} %; without the worst 0.1 %: {most_rmse:.2f} %, "
              f"{most_bias:+.2f} %")


if __name__ == "__main__":
    main()
