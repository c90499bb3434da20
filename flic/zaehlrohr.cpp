// FlicCompute::evalZaehlrohr: the counter tube that re-chooses the extension length.
#include "compute.h"

#include "engine_common.h"

using namespace muskeip::detail;

// Re-chooses the extension length from the counter tube: entry j holds the gain of extension
// step j and the number of lines that reached it. Only entries 0 .. 255 exist; an extension
// beyond 254 steps is evaluated over the steps the tube records. The counts come from the host:
// the suffix sums stored back wrap around like unsigned ints, the running gain is summed in 64
// bits and the weighted line counts in double, so no count makes the arithmetic undefined
// (counts of ordinary size give exactly the ratios of int arithmetic).
void FlicCompute::evalZaehlrohr() {
    int M = extensionSteps;
    int top = M > 254 ? 254 : M;
    for (int j = top + 1; j >= 1; j--)
        zaehlrohr[j - 1][1] = wrapAdd(zaehlrohr[j - 1][1], zaehlrohr[j][1]);
    if (M <= 0) {
        zaehlrohr[1][1] = 0;
        extensionSteps = 0;
        return;
    }
    float best = 0.0f;
    int choice = 0;
    long long gain = 0;
    for (int j = 1; j <= top; j++) {
        gain += zaehlrohr[j][0];
        double weight = static_cast<double>(static_cast<long long>(kernelSteps) + lengthBias + j);
        float ratio = static_cast<float>(gain) /
                      static_cast<float>(weight * static_cast<double>(zaehlrohr[j + 1][1]));
        if (ratio > best) {
            best = ratio;
            choice = j;
        }
        zaehlrohr[j][0] = 0;
        zaehlrohr[j][1] = 0;
    }
    zaehlrohr[top + 1][1] = 0;
    extensionSteps = choice;
}
