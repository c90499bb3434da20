// muskeip: Fast Line Integral Convolution of planar vector fields.
// Umbrella header: includes every public header of the library.
#ifndef MUSKEIP_H
#define MUSKEIP_H

#include "messages.h"
#include "image.h"
#include "vectorfield.h"
#include "scalarfield.h"
#include "colormap.h"
#include "scanconvert.h"
#include "graphics.h"
#include "integrator.h"
#include "compute.h"
#include "sobol.h"
#include "convolve.h"
#include "zoom.h"
#include "emboss.h"
#include "histogram.h"
#include "picture.h"
#include "probe.h"
#include "settings.h"

#endif
