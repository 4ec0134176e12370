// One byte per row of X: a constant-time membership test for a set of rows.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "core/types.hpp"

namespace arbolin {

// A mask spans all N rows, yet a node may hold few of them: the bytes come
// from buffers kept per thread, of which only the bytes of the set are
// written and, on release, cleared again. So a mask costs its set, not N.
class RowMask {
public:
    RowMask(std::uint64_t length, const RowList* rows) : length_(length), rows_(rows) {
        if (length_ == 0) {
            return;
        }
        slot_ = &freeSlot();
        slot_->inUse = true;
        bytes_ = &slot_->bytes;
        if (bytes_->size() < length_) {
            bytes_->resize(length_, 0);
        }
        for (std::uint64_t r : *rows_) {
            (*bytes_)[r] = 1;
        }
    }
    ~RowMask() {
        if (bytes_ == nullptr) {
            return;
        }
        for (std::uint64_t r : *rows_) {
            (*bytes_)[r] = 0;
        }
        slot_->inUse = false;
    }
    RowMask(const RowMask&) = delete;
    RowMask& operator=(const RowMask&) = delete;

    // Without a mask every row counts.
    bool counts(std::uint64_t r) const { return length_ == 0 || (*bytes_)[r] != 0; }

private:
    struct Slot {
        std::vector<unsigned char> bytes;  // all zero while free
        bool inUse = false;
    };
    // A deque keeps the slots in place as it grows.
    static Slot& freeSlot() {
        thread_local std::deque<Slot> pool;
        for (Slot& slot : pool) {
            if (!slot.inUse) {
                return slot;
            }
        }
        return pool.emplace_back();
    }

    std::uint64_t length_;
    const RowList* rows_;
    Slot* slot_ = nullptr;
    std::vector<unsigned char>* bytes_ = nullptr;
};

}  // namespace arbolin
