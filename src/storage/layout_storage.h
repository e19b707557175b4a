// Base of the river stores: rows placed by a shared RowLayout, and one lock
// record per row.
#pragma once

#include <memory>

#include "storage/storage.h"

class LayoutStorage : public Storage {
public:
    // The layout belongs to the tree and outlives the store.
    explicit LayoutStorage(const RowLayout* layout);

    int row_length(int group, int row) const override;
    // The whole layout's values, whatever the group.
    int64_t value_count(int group) const override;
    LockRecord* lock_record(int group, int row) override;

    const RowLayout& layout() const { return *layout_; }

protected:
    void save_lock_records(ByteChannel& channel) const;
    void load_lock_records(ByteChannel& channel);

    const RowLayout* layout_;
    std::unique_ptr<LockRecord[]> locks_;  // one per row of the layout
};
