// The extension module `muskeip._muskeip` behind the Python package `muskeip`: numpy arrays
// in, numpy arrays out.
#include "support.h"

#include "messages.h"

PYBIND11_MODULE(_muskeip, m) {
    m.doc() = R"doc(Fast Line Integral Convolution of planar vector fields.

Arrays index rows as the library does: row 0 is the bottom row of the picture, so
matplotlib shows pictures upright with imshow(picture, origin="lower").
Failures raise exceptions (OSError for files, with the library's message; ValueError and
TypeError for bad arguments); informational messages go to logging.getLogger("muskeip").)doc";
    mp::installMessageHandlers();
    bindImage(m);
    bindFilters(m);
    bindColormap(m);
    bindFields(m);
    bindGraphics(m);
    bindLic(m);
    m.attr("build_info") = orlapackage_flic();
}
