// Zip archives: a camera's description file, as it came out of its memory.

#include "fuzz_input.h"

#include "zip_reader.h"

#include <new>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<uint8_t> file(data, data + size);
    // An archive in the archive once more; a failure leaves the content as it is.
    for (int depth = 0; depth < 2; ++depth) {
        std::vector<uint8_t> content = {1, 2, 3};
        ZipResult result = ZipResult::Damaged;
        try {
            result = ExtractFirstMember(file, content);
        } catch (const std::bad_alloc&) {
            // A size that may be, but not on this machine.
        }
        if (result != ZipResult::Extracted) {
            FuzzDemand(content == std::vector<uint8_t>{1, 2, 3}, "a failure leaves the content");
            break;
        }
        file = std::move(content);
    }
    return 0;
}
