// FlicCompute::compute on small fields and textures built from the input bytes: field values
// from a menu of ordinary, special (NaN, infinities, huge, subnormal) and raw 32-bit values;
// every setting (lengths, kernel, sub-pixels, seeding, texture lookup, normalization, the
// integrators and their step control) from menus that include out-of-range values. After a
// successful computation the output has the texture's shape; a refused one leaves it alone.
// Then evalZaehlrohr on a counter tube filled from the bytes.
#include "engine_inputs.h"

#include <climits>
#include <vector>

using namespace fuzz;

namespace {

// One computation with the chosen mask and seed map; checks the shape of the results.
void computeOnce(fuzz::ByteReader& in, FlicCompute& lic, FlicVectorField& field,
                 FlicImage& texture) {
    FlicImage mask, seedMap;
    int maskChoice = in.below(4); // 0 none, 1 field's size, 2 another size, 3 with a seed map
    if (maskChoice > 0) {
        mask.setSize(field.width + (maskChoice == 2 ? 1 : 0), field.height, 1);
        mask.createRandom(0, 1 + in.byte());
    }
    FlicImage output(1, 1, 1);
    output.clear(42);
    const FlicImage before(output);
    int ok = lic.compute(&field, &texture, &output, maskChoice > 0 ? &mask : nullptr,
                         maskChoice == 3 ? &seedMap : nullptr);
    if (!ok) {
        FUZZ_CHECK(sameImage(output, before));
        return;
    }
    FUZZ_CHECK(output.width == texture.width && output.height == texture.height);
    FUZZ_CHECK(output.nChannels == texture.nChannels && output.data != nullptr);
    if (maskChoice == 3) {
        FUZZ_CHECK(seedMap.width == texture.width && seedMap.height == texture.height);
        FUZZ_CHECK(seedMap.nChannels == 1);
    }
    // Outside start and stop, sample has no buffers to work on and does nothing.
    Vec2f seed = {0.5f, 0.5f};
    lic.sample(seed);
}

// evalZaehlrohr on a tube filled with any counts; the extension it chooses lies in 0 .. M.
void evaluateTube(fuzz::ByteReader& in, FlicCompute& lic) {
    const int extensions[] = {-5, 0, 1, 2, 10, 80, 254, 255, 300, INT_MAX, INT_MIN};
    const int kernelSteps[] = {0, 1, 20, 1000, INT_MAX};
    for (int j = 0; j < 256; j++) {
        bool ordinary = in.below(4) != 0;
        lic.zaehlrohr[j][0] = ordinary ? in.byte() : static_cast<int>(in.word());
        lic.zaehlrohr[j][1] = ordinary ? in.byte() : static_cast<int>(in.word());
    }
    int extension = in.from(extensions);
    lic.extensionSteps = extension;
    lic.kernelSteps = in.from(kernelSteps);
    lic.lengthBias = in.below(2) ? 0 : static_cast<int>(in.word());
    lic.evalZaehlrohr();
    FUZZ_CHECK(lic.extensionSteps >= 0);
    FUZZ_CHECK(lic.extensionSteps <= (extension > 0 ? extension : 0));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::quietMessages();
    fuzz::ByteReader in(data, size);
    EngineInputs inputs(in);
    FlicCompute& lic = inputs.lic;
    FlicVectorField& field = inputs.field;
    FlicImage& texture = inputs.texture;
    computeOnce(in, lic, field, texture);
    if (in.below(2)) computeOnce(in, lic, field, texture); // the engine is reusable
    evaluateTube(in, lic);
    return 0;
}
