// Turning the field-source options of the command line into a checked FieldRequest.
#ifndef MUSKEIP_TOOLS_SOURCE_OPTIONS_H
#define MUSKEIP_TOOLS_SOURCE_OPTIONS_H

#include "commands.h"
#include "field_source.h"

// "WxH" given to `option` as the grid of a field: 2 to 10000 nodes each way, the limits of
// the field files. False after a usage message.
bool parseGrid(const std::string& text, const char* option, int& width, int& height);

// Parses the compound values (--matrix, --offset, --brusselator, --grid, --ucd) into `request`
// and classifies the source into `kind`. Returns EXIT_OK, or EXIT_USAGE after a message.
int buildFieldRequest(const FieldSourceOptions& options, FieldRequest& request, SourceKind& kind);

// The default grid of built-in fields and meshes for a picture of the given size: the same
// size, at most 1024 nodes each way (512 x 512 when the size is not known yet).
void defaultGrid(FieldRequest& request, int pictureWidth, int pictureHeight);

#endif
