#include "storage/codes/codec.h"

#include "storage/codes/entropy_coder.h"
#include "storage/codes/range_coder.h"
#include "storage/codes/run_coder.h"

std::unique_ptr<CodecWriter> open_writer(int id, StreamCallback callback, CoderStatistics* statistics) {
    if (id != entropy_coder_id) return nullptr;
    return std::make_unique<EntropyCoder>(callback, statistics);
}

std::unique_ptr<CodecReader> open_reader(StreamCallback callback) {
    uint8_t id;
    if (callback(0, &id, 1) != 1) return nullptr;
    switch (id) {
        case range_coder_id: return std::make_unique<RangeCoderReader>(callback);
        case run_coder_id: return std::make_unique<RunCoderReader>(callback);
        case entropy_coder_id: return std::make_unique<EntropyCoderReader>(callback);
        default: return nullptr;
    }
}
