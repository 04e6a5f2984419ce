#!/usr/bin/env python3
"""Writes mdlforge descriptions of a library of models. Usage:
make_library.py OUTDIR [COUNT] [PROFILE]

Profile "mixed" (the default): COUNT models, props (one bone, a grid mesh) and, every
fourth, a small character (a chain of 24 bones, a skinned mesh, six run-length animations
and their sequences).

Profile "characters": shaped like a real character library. COUNT characters of 50 to 130
bones, each with 60 to 150 animations of 20 to 150 frames: run-length tracks (a third of
the bones holding still), some split into sections, every fifth frame-packed (half the
bones constant), every fourth stored in the animation block file; and COUNT props beside
them.

OUTDIR/list.txt names each description and the folder its model goes to. The same
arguments give the same files."""

import math
import os
import sys


def grid_mesh(columns, rows, size, bones_along_z=1, height=0.0):
    """Vertices and triangle corners of a grid; with several bones, rows go to bones in turn."""
    vertices, corners = [], []
    for r in range(rows + 1):
        for c in range(columns + 1):
            x = size * c / columns - size / 2
            z = height * r / rows
            y = size * r / rows - size / 2 if height == 0 else math.sin(c) * 2
            bone = min(bones_along_z - 1, r * bones_along_z // (rows + 1))
            vertices.append(
                '\t\t\t\t"vertex"\t{ "position" "%.3f %.3f %.3f" "uv" "%.4f %.4f" "bones" "%d" }'
                % (x, y, z, c / columns, r / rows, bone))
    for r in range(rows):
        for c in range(columns):
            a = r * (columns + 1) + c
            b, d, e = a + 1, a + columns + 1, a + columns + 2
            corners += [a, b, e, a, e, d]
    return vertices, corners


def body(name, vertices, corners):
    return [
        '\t"bodypart"', '\t{', '\t\t"name"\t"body"', '\t\t"model"', '\t\t{', '\t\t\t"name"\t"%s"' % name,
        '\t\t\t"mesh"', '\t\t\t{', '\t\t\t\t"material"\t"0"', *vertices,
        '\t\t\t\t"lod"\t\t{ "triangles" "%s" }' % " ".join(map(str, corners)), '\t\t\t}', '\t\t}', '\t}'
    ]


def prop(index):
    name = "models/props/set%02d/prop%04d.mdl" % (index % 17, index)
    vertices, corners = grid_mesh(12 + index % 5, 12, 32 + index % 7)
    return [
        '"model"', '{', '\t"name"\t"%s"' % name, '\t"checksum"\t"%d"' % (1000 + index),
        '\t"hull_min"\t"-20 -20 0"', '\t"hull_max"\t"20 20 4"', '\t"texture"\t"prop_%d"' % (index % 9),
        '\t"texturedir"\t"models\\props\\"', '\t"keyvalues"\t{ "prop_data" { "base" "Wooden.Small" } }',
        '\t"bone"\t\t{ "name" "root" "flags" "0x400" }',
        '\t"animation"\t{ "name" "@idle" "frames" "1" }',
        '\t"sequence"\t{ "name" "idle" "activity" "ACT_IDLE" "animations" "@idle" }',
        *body("prop", vertices, corners), '}'
    ]


def character(index):
    name = "models/characters/crowd%02d/person%04d.mdl" % (index % 11, index)
    bone_count = 24
    lines = [
        '"model"', '{', '\t"name"\t"%s"' % name, '\t"checksum"\t"%d"' % (5000 + index),
        '\t"hull_min"\t"-16 -16 0"', '\t"hull_max"\t"16 16 72"', '\t"texture"\t"person_%d"' % (index % 5),
        '\t"texturedir"\t"models\\characters\\"'
    ]
    for b in range(bone_count):
        parent = '' if b == 0 else ' "parent" "b%02d"' % (b - 1)
        lines.append('\t"bone"\t\t{ "name" "b%02d"%s "position" "0 0 %d" "rotation_scale" "0.0005 0.0005 0.0005" '
                     '"position_scale" "0.01 0.01 0.01" "flags" "0x400" }' % (b, parent, 0 if b == 0 else 3))
    animations = ["idle", "walk", "run", "wave", "crouch", "jump"]
    for a, anim in enumerate(animations):
        frames = 30 + 6 * a
        lines += ['\t"animation"', '\t{', '\t\t"name"\t"%s"' % anim, '\t\t"fps"\t"30"', '\t\t"frames"\t"%d"' % frames]
        for b in range(bone_count):
            values = " ".join(str(int(300 * math.sin((f + b) * (a + 1) * 0.1))) for f in range(frames))
            position = " ".join(str(int(50 * math.cos(f * 0.2))) for f in range(frames))
            lines.append('\t\t"track"\t{ "bone" "b%02d" "rotation_x" "%s" "rotation_z" "%s" "position_x" "%s" }'
                         % (b, values, values, position))
        lines.append('\t}')
        lines.append('\t"sequence"\t{ "name" "%s" "animations" "%s"%s }' %
                     (anim, anim, ' "activity" "ACT_IDLE"' if a == 0 else ''))
    vertices, corners = grid_mesh(16, 47, 16, bones_along_z=bone_count, height=72)
    lines += body("person", vertices, corners)
    lines.append('}')
    return lines


def wave(frames, phase, amplitude, speed):
    return " ".join(str(int(amplitude * math.sin(f * speed + phase))) for f in range(frames))


def quaternion_frames(frames, phase):
    """Unit quaternions turning about a tilted axis, one per frame, as mdlforge reads them."""
    items = []
    for f in range(frames):
        half = 0.4 * math.sin(f * 0.15 + phase)
        s, c = math.sin(half), math.cos(half)
        items.append("%.5f %.5f %.5f %.5f" % (0.6 * s, 0.0, 0.8 * s, c))
    return "; ".join(items)


def character_animation(a, bone_count, frames):
    """The lines of one animation: run-length tracks (in sections every third animation),
    frame-packed every fifth, in block 1 of the animation block file every fourth."""
    lines = ['\t"animation"', '\t{', '\t\t"name"\t"anim%03d"' % a, '\t\t"fps"\t"30"', '\t\t"frames"\t"%d"' % frames]
    if a % 3 == 1:
        lines.append('\t\t"frames_per_section"\t"40"')
    if a % 4 == 2:
        lines.append('\t\t"block"\t"1"')
    if a % 5 == 0:
        lines.append('\t\t"framepacked"\t{')
        for b in range(bone_count):
            if b % 2 == 0:
                rotation = '"rotation" "frame48" "rotations" "%s"' % quaternion_frames(frames, a + b)
            else:
                rotation = '"rotation" "const48" "rotations" "0 0 0.38268 0.92388"'
            position = '"position" "const_half" "positions" "0 0 %d"' % (0 if b == 0 else 3)
            lines.append('\t\t\t"bone"\t{ %s %s }' % (rotation, position))
        lines.append('\t\t}')
    else:
        for b in range(bone_count):
            if b % 3 == 2:
                continue  # a bone that holds still (fingers, face, helpers), as most do in real animations
            turn = wave(frames, a + b, 300, 0.1 + 0.01 * (a % 7))
            root = ' "position_x" "%s"' % wave(frames, a, 50, 0.2) if b == 0 else ""
            lines.append('\t\t"track"\t{ "bone" "b%03d" "rotation_x" "%s" "rotation_z" "%s"%s }' % (b, turn, turn, root))
    lines.append('\t}')
    return lines


def library_character(index):
    """A character of the "characters" profile."""
    name = "models/characters/cast%02d/hero%04d.mdl" % (index % 7, index)
    bone_count = 50 + (index * 37) % 81
    animation_count = 60 + (index * 53) % 91
    lines = [
        '"model"', '{', '\t"name"\t"%s"' % name, '\t"checksum"\t"%d"' % (9000 + index),
        '\t"hull_min"\t"-16 -16 0"', '\t"hull_max"\t"16 16 72"', '\t"texture"\t"hero_%d"' % (index % 5),
        '\t"texturedir"\t"models\\characters\\"'
    ]
    for b in range(bone_count):
        parent = '' if b == 0 else ' "parent" "b%03d"' % ((b - 1) // 2)
        lines.append('\t"bone"\t\t{ "name" "b%03d"%s "position" "0 0 %d" "rotation_scale" "0.0005 0.0005 0.0005" '
                     '"position_scale" "0.01 0.01 0.01" "flags" "0x400" }' % (b, parent, 0 if b == 0 else 3))
    for a in range(animation_count):
        frames = 20 + (a * 37 + index) % 131
        lines += character_animation(a, bone_count, frames)
        lines.append('\t"sequence"\t{ "name" "seq%03d" "animations" "anim%03d" }' % (a, a))
    vertices, corners = grid_mesh(16, 47, 16, bones_along_z=bone_count, height=72)
    lines += body("hero", vertices, corners)
    lines.append('}')
    return lines


def models(count, profile):
    """The description lines of every model of the profile, in order."""
    if profile == "characters":
        for i in range(count):
            yield library_character(i)
            yield prop(i)
    elif profile == "mixed":
        for i in range(count):
            yield character(i) if i % 4 == 3 else prop(i)
    else:
        sys.exit("unknown profile %s (mixed or characters)" % profile)


def main():
    out = sys.argv[1]
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    profile = sys.argv[3] if len(sys.argv) > 3 else "mixed"
    os.makedirs(out, exist_ok=True)
    with open(os.path.join(out, "list.txt"), "w", newline="\n") as listing:
        for i, lines in enumerate(models(count, profile)):
            description = "m%04d.txt" % i
            with open(os.path.join(out, description), "w", newline="\n") as f:
                f.write("\n".join(lines) + "\n")
            folder = os.path.dirname(lines[2].split('"')[3])
            listing.write("%s %s\n" % (description, folder))


if __name__ == "__main__":
    main()
