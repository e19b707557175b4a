#include "storage/row_stream.h"

std::atomic<int64_t> storage_read_bytes{0};
std::atomic<int64_t> storage_write_bytes{0};
std::atomic<StorageDamageListener> storage_damage_listener{nullptr};
