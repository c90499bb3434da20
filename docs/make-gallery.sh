#!/bin/sh
# Makes the pictures of the README from the command line: docs/demo.png (a reduced copy of the
# `make demo` picture) and docs/gallery/*.png. Run from anywhere after building:
#     docs/make-gallery.sh            (uses build/tools/muskeip)
#     MUSKEIP=/path/to/muskeip docs/make-gallery.sh
set -e
cd "$(dirname "$0")"
MUSKEIP=${MUSKEIP:-../build/tools/muskeip}
[ -x "$MUSKEIP" ] || { echo "build first (make demo or make test): $MUSKEIP not found" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
out=gallery
lic() { "$MUSKEIP" -q lic "$@"; }

# The demo picture, computed at full size and reduced.
lic dipole --size 1024x1024 --length 25 --colour magnitude --colormap hue --emboss \
    --zoom 300x300 -o demo.png

# Kernels: the same spiral with the box, triangle and cubic kernel.
for kernel in box triangle cubic; do
    lic linear --matrix 0.3,-1,1,0.3 --size 180x180 --length 10 --kernel $kernel \
        -o $out/kernel-$kernel.png
done

# Sub-pixel seeding: a 64 x 64 picture enlarged three times, with 1 and 4 sub-pixels a side.
for s in 1 4; do
    lic saddle --size 64x64 --length 8 --subpixels $s --noise uniform --zoom 180x180 \
        -o $out/subpixels-$s.png
done

# Emboss: lit along the field, and from a fixed light (azimuth 135, elevation 40 degrees).
lic brusselator --size 400x400 --length 15 --emboss --zoom 180x180 -o $out/emboss-field.png
lic circle --size 400x400 --length 15 --emboss=135,40 --zoom 180x180 -o $out/emboss-light.png

# Overlay: a FLIC GRAPHICS command file (a red polygon and blue markers) on the circle field.
awk 'BEGIN {
    print "FLIC GRAPHICS"
    print "canvas -1 -1 1 1"
    print "color 1 0.1 0.1"
    print "width 3"
    line = "line"
    for (k = 0; k <= 6; k++) line = line " " 0.6 * cos(k * 3.14159265 / 3) " " 0.6 * sin(k * 3.14159265 / 3)
    print line
    print "color 0.1 0.3 1"
    print "width 7"
    print "points 0 0 0.3 0 -0.3 0 0 0.3 0 -0.3"
}' > "$work/overlay.gfx"
lic circle --size 180x180 --length 12 --overlay "$work/overlay.gfx" -o $out/overlay.png

# Mesh import: potential flow around a cylinder on a polar triangle mesh (x, y, vx, vy per
# vertex), coloured by speed, with the mesh edges drawn over it.
awk 'BEGIN {
    nr = 5; nt = 24; R = 0.5; pi = 3.14159265
    printf "%d %d\nvertices\n", (nr + 1) * nt, 2 * nr * nt
    for (i = 0; i <= nr; i++)
        for (j = 0; j < nt; j++) {
            r = R + 2 * i / nr; a = 2 * pi * j / nt; x = r * cos(a); y = r * sin(a)
            r4 = r * r * r * r
            printf "%g %g %g %g\n", x, y, 1 - R * R * (x * x - y * y) / r4, -2 * R * R * x * y / r4
        }
    print "triangles"
    for (i = 0; i < nr; i++)
        for (j = 0; j < nt; j++) {
            a = i * nt + j + 1; b = i * nt + (j + 1) % nt + 1; c = a + nt; d = b + nt
            printf "%d %d %d\n%d %d %d\n", a, b, d, a, d, c
        }
}' > "$work/cylinder.inp"
lic "$work/cylinder.inp" --ucd 480x480 --size 480x480 --length 15 --colour magnitude \
    --zoom 200x200 --mesh "$work/cylinder.inp" \
    --line-colour white -o $out/mesh.png

# Real data. Closed borders: a saddle whose lines end at the field's edges instead of coming
# back in at the opposite edge (small picture, long kernel: the edges' rims are wide).
for border in periodic closed; do
    lic linear --matrix 1,0.5,0,-1 --offset 0.3,0 --size 160x160 --length 30 --noise uniform \
        --border $border --zoom 240x240 -o $out/border-$border.png
done
# Orientation fields: circles whose vectors have random signs (as directors or polarisation
# angles do), read as vectors and as an orientation field.
awk 'BEGIN {
    srand(7); n = 61
    printf "FLIC VECTOR ASCII\n%d %d\n", n, n
    for (y = 0; y < n; y++)
        for (x = 0; x < n; x++) {
            s = rand() < 0.5 ? -1 : 1
            printf "%g %g\n", -s * (y - 30), s * (x - 30)
        }
}' > "$work/directors.vec"
lic "$work/directors.vec" --size 480x480 --length 20 --zoom 240x240 -o $out/orientation-off.png
lic "$work/directors.vec" --size 480x480 --length 20 --orientation --zoom 240x240 \
    -o $out/orientation-on.png

# Pictures to publish, at 512 x 512: blend modes, colour maps and contrast steps.
for blend in multiply lightness overlay; do
    lic dipole --size 512x512 --length 20 --colour magnitude --colormap blue-white-red \
        --blend $blend -o $out/blend-$blend.png
done
lic dipole --size 512x512 --length 20 --colour magnitude -o $out/map-viridis.png
lic dipole --size 512x512 --length 20 --colour magnitude --colormap magma -o $out/map-magma.png
lic linear --matrix 0.3,-1,1,0.3 --size 512x512 --length 20 --colour direction \
    -o $out/map-twilight.png
lic brusselator --size 512x512 --length 15 -o $out/contrast-plain.png
lic brusselator --size 512x512 --length 15 --enhance -o $out/contrast-enhance.png
lic brusselator --size 512x512 --length 15 --equalize adaptive -o $out/contrast-equalize.png

# Animation: the dipole's texture flowing along the field, 16 frames in a loop.
"$MUSKEIP" -q animate dipole --size 200x200 --length 15 --frames 16 --fps 16 --colour magnitude \
    --colormap hue -o $out/dipole-animated.webp

ls -l demo.png $out
