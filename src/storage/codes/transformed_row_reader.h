// The part that all readers share: a row is decoded into its transformed
// values by the coder, then rebuilt by the inverse row transform. A damaged
// stream stays damaged: every row from then on reads as zeros.
#pragma once

#include <cstdint>

#include "storage/codes/codec.h"

class TransformedRowReader : public CodecReader {
public:
    bool read32(uint32_t* row, const uint32_t* previous, int count) final;
    bool read16(uint16_t* row, const uint16_t* previous, int count) final;
    const char* failure() const final { return failed_ ? failure_text_ : nullptr; }

protected:
    explicit TransformedRowReader(const char* failure_text) : failure_text_(failure_text) {}

    // Fills `count` transformed values (the array has room for 8 more) and the
    // row's flag; false when the bytes ran out or made no sense.
    virtual bool decode_values(uint32_t* values, int count, int& flag) = 0;

    bool failed_ = false;

private:
    // Decodes into `values`; false (and failed from then on) on damage, or on
    // a row that needs a previous row when none was given.
    bool decode_checked(uint32_t* values, int count, bool has_previous, int& flag);

    const char* failure_text_;
};
