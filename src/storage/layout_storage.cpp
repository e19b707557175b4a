#include "storage/layout_storage.h"

LayoutStorage::LayoutStorage(const RowLayout* layout)
    : layout_(layout), locks_(std::make_unique<LockRecord[]>(layout->row_count)) {}

int LayoutStorage::row_length(int group, int row) const {
    if (group < 0 || row < 0) return 0;
    return layout_row(*layout_, group, row).hand_count;
}

int64_t LayoutStorage::value_count(int) const { return layout_->value_count; }

LockRecord* LayoutStorage::lock_record(int group, int row) {
    // -1 stands for an unnamed card, which names no row.
    if (group < 0 || row < 0 || group >= layout_->group_count) return nullptr;
    if (row >= layout_->groups[group].row_count) return nullptr;
    return &locks_[layout_row_index(*layout_, group, row)];
}

void LayoutStorage::save_lock_records(ByteChannel& channel) const {
    for (int i = 0; i < layout_->row_count; ++i) save_lock_record(channel, locks_[i]);
}

void LayoutStorage::load_lock_records(ByteChannel& channel) {
    for (int i = 0; i < layout_->row_count; ++i) load_lock_record(channel, locks_[i], layout_->rows[i].hand_count);
}
