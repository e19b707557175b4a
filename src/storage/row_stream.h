// A sequential store of rows: the companion of a packed store. While a worker
// walks a group, one stream per player takes the rows of all river nodes of
// that group, in walk order, and gives them back in the same order on the
// next visit. A stream holds no addresses, only rows one after the other.
//
// Each pass is bracketed: begin_write, put_row..., end_write; begin_read,
// get_row..., end_read. A previous row, where given, is the same action's row
// of the previous river card; a coder may code a row as a difference from it,
// so reader and writer must pass the same previous rows.
#pragma once

#include <atomic>
#include <cstdint>

#include "storage/codes/byte_channel.h"

// Bytes moved through the streams since the storage was allocated, for the
// solver's progress report. Added to atomically by every stream's end of pass.
extern std::atomic<int64_t> storage_read_bytes;
extern std::atomic<int64_t> storage_write_bytes;

// Told the reason when a stream finds its rows damaged (once per pass; the
// rows then read as zeros), on whatever thread reads. Storage prints
// nothing: the program's shell sets this and tells the client.
using StorageDamageListener = void (*)(const char* reason);
extern std::atomic<StorageDamageListener> storage_damage_listener;

class RowStream {
public:
    virtual ~RowStream() = default;

    virtual void begin_write() = 0;
    virtual void end_write() = 0;
    // Whether the last write (or a load) left rows to read.
    virtual bool has_data() const = 0;
    virtual void begin_read() = 0;
    virtual void end_read() = 0;

    virtual void put_row32(const uint32_t* row, const uint32_t* previous, int count) = 0;
    virtual void put_row16(const uint16_t* row, const uint16_t* previous, int count) = 0;
    virtual void get_row32(uint32_t* row, const uint32_t* previous, int count) = 0;
    virtual void get_row16(uint16_t* row, const uint16_t* previous, int count) = 0;

    // Size of the address range the stream may fill; fixed when it is made
    // or loaded.
    virtual int64_t reserve_limit() const = 0;

    // The stream's section of the tree file.
    virtual void save(ByteChannel& channel) const = 0;
    virtual void load(ByteChannel& channel) = 0;
};
