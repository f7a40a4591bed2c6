#!/usr/bin/env python3
"""Writes a picture of a clear sky, for `image` of a sky_light section: latitude-longitude, Radiance .hdr.

The sky follows Preetham, Shirley and Smits 1999, "A Practical Analytic Model for Daylight": luminance and chromaticity
by their fit of Perez's five-parameter formula. The sun is a disc of the power that their attenuation by air and haze
leaves of it (ozone, mixed gases and vapour are left out: together a few percent). The ground is a matte plane under
both.

Orientation: column i and row j of a picture of w x h stand for u = i / w and v = j / h exactly, as lookups have no
half-texel shift. Row 0, the first of the file, is the zenith, row h / 2 the horizon. Along a row stand east (column 0),
north (a quarter), west (the half) and south (three quarters): to an observer the picture runs to the left. North and
zenith are the directions that the sky_light section names; azimuths are counted from north towards east.

Scale: 1 is 8000 candela per square metre, so that a clear sky lies around 0.3 to 3 (more close to the sun) and the sun
lights a surface that faces it with an irradiance of up to about 13.
"""

import argparse
import math
import pathlib
import sys

CANDELA_PER_UNIT = 8000.0
SUN_ILLUMINANCE = 127500.0  # lux, outside the atmosphere
SUN_RADIUS = math.radians(0.2666)
SUN_CHANNELS = (0.610, 0.550, 0.465)  # wavelengths that stand for red, green and blue, micrometres
SUN_POINTS = 24  # per axis, over the square around the disc


def polynomial(rows, turbidity, angle):
    """Rows for turbidity squared, turbidity and 1; columns for the third to the zeroth power of the angle."""
    powers = (angle**3, angle**2, angle, 1.0)
    return sum(t * sum(c * p for c, p in zip(row, powers)) for t, row in zip((turbidity**2, turbidity, 1.0), rows))


class Daylight:
    """Luminance Y (kilocandela per square metre) and chromaticity x, y of the sky around one sun."""

    PEREZ = {  # (slope, constant) in turbidity for A to E
        "Y": ((0.1787, -1.4630), (-0.3554, 0.4275), (-0.0227, 5.3251), (0.1206, -2.5771), (-0.0670, 0.3703)),
        "x": ((-0.0193, -0.2592), (-0.0665, 0.0008), (-0.0004, 0.2125), (-0.0641, -0.8989), (-0.0033, 0.0452)),
        "y": ((-0.0167, -0.2608), (-0.0950, 0.0092), (-0.0079, 0.2102), (-0.0441, -1.6537), (-0.0109, 0.0529)),
    }
    ZENITH_X = ((0.00166, -0.00375, 0.00209, 0.0), (-0.02903, 0.06377, -0.03202, 0.00394),
                (0.11693, -0.21196, 0.06052, 0.25886))
    ZENITH_Y = ((0.00275, -0.00610, 0.00317, 0.0), (-0.04214, 0.08970, -0.04153, 0.00516),
                (0.15346, -0.26756, 0.06670, 0.26688))

    def __init__(self, turbidity, sun_polar):
        chi = (4 / 9 - turbidity / 120) * (math.pi - 2 * sun_polar)
        zenith = {
            "Y": (4.0453 * turbidity - 4.9710) * math.tan(chi) - 0.2155 * turbidity + 2.4192,
            "x": polynomial(self.ZENITH_X, turbidity, sun_polar),
            "y": polynomial(self.ZENITH_Y, turbidity, sun_polar),
        }
        self.terms = []
        for key in ("x", "y", "Y"):
            perez = [slope * turbidity + constant for slope, constant in self.PEREZ[key]]
            self.terms.append((zenith[key] / self.perez(perez, 1.0, sun_polar), perez))

    @staticmethod
    def perez(coefficients, cos_polar, from_sun):
        a, b, c, d, e = coefficients
        return (1 + a * math.exp(b / cos_polar)) * (1 + c * math.exp(d * from_sun) + e * math.cos(from_sun) ** 2)

    def radiance(self, cos_polar, from_sun):
        """Linear RGB in units of the picture. The formula has a pole at the horizon, which it only nears."""
        x, y, luminance = (scale * self.perez(p, max(cos_polar, 0.01), from_sun) for scale, p in self.terms)
        return rgb(x, y, 1000 * luminance / CANDELA_PER_UNIT)


def rgb(x, y, luminance):
    """CIE xyY to linear sRGB; colours outside its gamut lose their negative part."""
    big_x, big_z = x / y * luminance, (1 - x - y) / y * luminance
    return [max(0.0, m[0] * big_x + m[1] * luminance + m[2] * big_z)
            for m in ((3.2406, -1.5372, -0.4986), (-0.9689, 1.8758, 0.0415), (0.0557, -0.2040, 1.0570))]


def sun_irradiance(turbidity, sun_polar):
    """On a surface that faces the sun, in units of the picture."""
    degrees = math.degrees(sun_polar)
    air_mass = 1 / (math.cos(sun_polar) + 0.15 * (93.885 - degrees) ** -1.253)
    haze = 0.04608 * turbidity - 0.04586
    depths = (air_mass * (0.008735 * wavelength**-4.08 + haze * wavelength**-1.3) for wavelength in SUN_CHANNELS)
    return [SUN_ILLUMINANCE / CANDELA_PER_UNIT * math.exp(-depth) for depth in depths]


class Picture:
    """Rows of [r, g, b]. `east, north, up` are the axes of all directions here."""

    def __init__(self, width):
        self.width, self.height = width, width // 2
        self.rows = [[[0.0] * 3 for _ in range(width)] for _ in range(self.height)]

    def direction(self, column, row):
        turn, polar = 2 * math.pi * column / self.width, math.pi * row / self.height
        return math.sin(polar) * math.cos(turn), math.sin(polar) * math.sin(turn), math.cos(polar)

    def texel_of(self, direction):
        """Column and row with their fractions, 0 to width and 0 to height."""
        east, north, up = direction
        turn = math.atan2(north, east) % (2 * math.pi)
        return turn / (2 * math.pi) * self.width, math.acos(max(-1.0, min(1.0, up))) / math.pi * self.height

    def solid_angle(self, row):
        """What a texel of a row counts for when lookups blend linearly between texels."""
        step, polar = math.pi / self.height, math.pi * row / self.height
        if row == 0:
            return 2 * math.pi / self.width * (1 - math.sin(step) / step)
        return 2 * math.pi / self.width * math.sin(polar) * (2 - 2 * math.cos(step)) / step

    def splat(self, direction, power):
        """Adds a point of light to the texels around it, so that their solid angles give its power again. Columns are
        narrow near the zenith: there it is spread over as many as are as wide as a row is high. Row 0 gets none, as
        lookups at the nadir blend with it."""
        column, row = self.texel_of(direction)
        row = max(row, 1.0)
        j = min(int(row), self.height - 2)
        for y, row_share in ((j, j + 1 - row), (j + 1, row - j)):
            spread = min(self.width, 1 / math.sin(math.pi * y / self.height))
            low, high = column - spread / 2, column + spread / 2
            for i in range(math.floor(low + 0.5), math.ceil(high - 0.5) + 1):
                share = row_share * (min(high, i + 0.5) - max(low, i - 0.5)) / spread
                texel = self.rows[y][i % self.width]
                for c in range(3):
                    texel[c] += power[c] * share / self.solid_angle(y)

    def encoded(self):
        header = f"#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y {self.height} +X {self.width}\n"
        return header.encode() + b"".join(encode_row(row) for row in self.rows)


def shared_exponent(color):
    """Ward's four bytes: three mantissas and the exponent of the largest."""
    largest = max(color)
    if largest < 1e-32:
        return 0, 0, 0, 0
    mantissa, exponent = math.frexp(largest)
    scale = mantissa * 256 / largest
    return (*(int(c * scale) for c in color), exponent + 128)


def encode_row(row):
    """The four bytes of all texels, plane by plane, each in runs."""
    width = len(row)
    start = bytes((2, 2, width >> 8, width & 255))
    return start + b"".join(encode_runs(bytes(plane)) for plane in zip(*map(shared_exponent, row)))


def encode_runs(plane):
    """A count above 128 repeats one byte count - 128 times, others are followed by as many bytes."""
    out, literal, i = bytearray(), 0, 0
    while i < len(plane):
        run = 1
        while i + run < len(plane) and run < 127 and plane[i + run] == plane[i]:
            run += 1
        if run >= 4:
            append_literal(out, plane[literal:i])
            out += bytes((128 + run, plane[i]))
            literal = i + run
        i += run
    append_literal(out, plane[literal:])
    return bytes(out)


def append_literal(out, values):
    for start in range(0, len(values), 128):
        chunk = values[start:start + 128]
        out.append(len(chunk))
        out += chunk


def paint_sky(picture, daylight, sun):
    """Everything above the horizon. Returns its irradiance on the ground."""
    irradiance = [0.0] * 3
    for j in range(picture.height // 2 + 1):
        weight = picture.solid_angle(j) * math.cos(math.pi * j / picture.height)
        for i in range(picture.width):
            d = picture.direction(i, j)
            cosine = sum(a * b for a, b in zip(d, sun))
            color = daylight.radiance(d[2], math.acos(max(-1.0, min(1.0, cosine))))
            picture.rows[j][i] = color
            for c in range(3):
                irradiance[c] += weight * color[c]
    return irradiance


def paint_sun(picture, sun, irradiance):
    """A disc of even points around the direction of the sun."""
    east, north, up = sun
    side = (north, -east, 0.0) if up < 0.9999 else (1.0, 0.0, 0.0)
    length = math.hypot(*side)
    side = [s / length for s in side]
    over = (north * side[2] - up * side[1], up * side[0] - east * side[2], east * side[1] - north * side[0])
    grid = [(2 * k + 1) / SUN_POINTS - 1 for k in range(SUN_POINTS)]
    points = [(a, b) for a in grid for b in grid if a * a + b * b <= 1]
    for a, b in points:
        d = [s + SUN_RADIUS * (a * x + b * y) for s, x, y in zip(sun, side, over)]
        length = math.hypot(*d)
        picture.splat([c / length for c in d], [c / len(points) for c in irradiance])


def make_sky(options):
    picture = Picture(options.width)
    elevation, azimuth = math.radians(options.elevation), math.radians(options.azimuth)
    sun_polar = math.pi / 2 - elevation
    sun = (math.sin(azimuth) * math.cos(elevation), math.cos(azimuth) * math.cos(elevation), math.sin(elevation))
    sky = paint_sky(picture, Daylight(options.turbidity, sun_polar), sun)
    direct = [options.sun * c for c in sun_irradiance(options.turbidity, sun_polar)]
    ground = [albedo / math.pi * (s + sun[2] * d) for albedo, s, d in zip(options.ground, sky, direct)]
    for row in picture.rows[picture.height // 2 + 1:]:
        row[:] = [list(ground) for _ in row]
    if options.sun > 0:
        paint_sun(picture, sun, direct)
    return picture


def number_between(low, high, kind=float):
    def convert(text):
        value = kind(text)
        if not low <= value <= high:
            raise argparse.ArgumentTypeError(f"{text} is not between {low} and {high}")
        return value
    return convert


def color(text):
    values = [number_between(0, 1)(part) for part in text.split(",")]
    if len(values) != 3:
        raise argparse.ArgumentTypeError("three numbers are needed: r,g,b")
    return values


def main():
    parser = argparse.ArgumentParser(description="Writes a picture of a clear sky, latitude-longitude, Radiance .hdr.")
    parser.add_argument("output", type=pathlib.Path)
    parser.add_argument("--elevation", type=number_between(0, 90), default=50, help="of the sun, degrees [50]")
    parser.add_argument("--azimuth", type=number_between(-360, 360), default=150,
                        help="of the sun, degrees from north towards east [150]")
    parser.add_argument("--turbidity", type=number_between(2, 10), default=3, help="2 very clear to 10 hazy [3]")
    parser.add_argument("--sun", type=number_between(0, 1000), default=1, help="power of the disc; 0 for none [1]")
    parser.add_argument("--ground", type=color, default=[0.2, 0.18, 0.15], metavar="R,G,B",
                        help="reflectance of the ground [0.2,0.18,0.15]")
    parser.add_argument("--width", type=number_between(16, 16384, int), default=512,
                        help="texels; the height is half [512]")
    options = parser.parse_args()
    try:
        options.output.write_bytes(make_sky(options).encoded())
    except OSError as error:
        sys.exit(f"make_sky: {error}")


if __name__ == "__main__":
    main()
