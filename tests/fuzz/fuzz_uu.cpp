// libFuzzer entry point for the uu decoder.
#include "FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    return fuzz::fuzzUu(data, size);
}
