import matplotlib.pyplot as plt, numpy as np, muskeip

y, x = np.mgrid[0:512, 0:512] / 511.0 - 0.5            # rows grow upward: y = row
u, v = -y - 0.3 * x, x - 0.3 * y                         # a spiral sink
picture = muskeip.lic(u, v, length=30)                   # uint8 array, shape (512, 512)
cmap = muskeip.Colormap(); cmap.createHueRamp(); cmap.setMinMax(0, 0.75)
speed = muskeip.ScalarField(np.hypot(u, v)).pseudoColor(cmap)
coloured = muskeip.Image(picture).mix(speed)              # LIC streaks coloured by speed
plt.imshow(coloured, origin="lower")                     # row 0 at the bottom: upright
plt.axis("off"); plt.savefig("python_example.png", dpi=80, bbox_inches="tight")
