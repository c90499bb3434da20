// The picture keywords of muskeip.render, read into the library's FlicPicture settings.
#ifndef MUSKEIP_PYTHON_PICTURE_SETTINGS_H
#define MUSKEIP_PYTHON_PICTURE_SETTINGS_H

#include "support.h"

#include "picture.h"

#include <memory>

// The settings with what they borrow: the scalar field of `colour=array` lives here.
struct PictureInput {
    FlicPicture settings;
    std::unique_ptr<FlicScalarField> colourValues;
    py::object keep; // the float32 copy of the colour array
};

// Reads the dict that muskeip.render passes on (keys: adjust, enhance, equalize, blur,
// median, colour, colormap, blend, range, emboss, zoom); raises ValueError or TypeError naming
// the keyword for bad values, OSError for an unreadable colour-map file.
void readPictureSettings(const py::dict& keywords, PictureInput& input);

#endif
