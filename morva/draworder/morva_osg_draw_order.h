#pragma once

// An order of elements in pieces, and what makes a piece full.

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace morva::osg {

/// One index per corner: those of a property, or numbers of whole corners.
struct counted_column {
    const std::uint32_t* cells = nullptr; ///< of corner i: cells[i * stride]
    std::size_t stride = 1;
    std::size_t ids = 0; ///< all cells are below
};

/// Elements in draw order, in pieces.
struct draw_order {
    std::vector<std::uint32_t> elements;  ///< places; one can stand twice, see cache_walk
    std::vector<std::size_t> piece_first; ///< per piece its start in `elements`; at least one

    std::size_t pieceEnd(std::size_t piece) const {
        return piece + 1 < piece_first.size() ? piece_first[piece + 1] : elements.size();
    }
};

/// Counts the distinct ids that the elements of a piece use in each column.
class piece_counter {
  public:
    piece_counter(const std::vector<counted_column>& columns, std::size_t limit)
        : limit_(limit), full_(limit == 0) {
        for (const counted_column& column : columns) {
            if (column.ids >= limit) // else it never fills
                columns_.push_back({column, std::vector<std::uint32_t>(column.ids, 0), 0});
        }
    }

    /// Whether some column has as many ids as the limit allows.
    bool full() const { return full_; }

    void openPiece() {
        ++piece_;
        full_ = limit_ == 0;
        for (counting& column : columns_)
            column.count = 0;
    }

    template <unsigned Corners> void add(std::size_t element) {
        for (counting& column : columns_) {
            const std::uint32_t* cell = column.of.cells + element * Corners * column.of.stride;
            for (unsigned k = 0; k < Corners; ++k, cell += column.of.stride) {
                assert(*cell < column.of.ids);
                column.count += column.piece_of[*cell] == piece_ ? 0 : 1;
                column.piece_of[*cell] = piece_;
            }
            full_ = full_ || column.count >= limit_;
        }
    }

  private:
    struct counting {
        counted_column of;
        std::vector<std::uint32_t> piece_of; ///< per id: the last piece that used it
        std::size_t count;                   ///< ids that the open piece uses
    };
    std::vector<counting> columns_;
    std::size_t limit_;
    bool full_;
    std::uint32_t piece_ = 0; ///< 0: none opened yet
};

} // namespace morva::osg
