// A user program built against the installed library: prints the package description and
// writes a small noise image.
#include <muskeip/muskeip.h>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    if (std::strncmp(orlapackage_flic(), "|vendor|", 8) != 0) return 1;
    FlicImage noise(8, 8);
    noise.createRandom(1, 3);
    return argc > 1 && noise.writePNM(argv[1]) ? 0 : 2;
}
