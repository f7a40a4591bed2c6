#pragma once

#include "scene/transcript.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// The format of scene files as a tree, learnt from the reader: each keyword of each block is read once with its
/// example, and what the reader did then is what the format is.
namespace hv {

struct FormatBlock;

struct FormatRow {
    std::string_view             word;
    const Note*                  note = nullptr;
    std::vector<ValueRecord>     values;  ///< of the example; `before` is the default
    std::unique_ptr<FormatBlock> block;   ///< the block that the keyword opens; null for others
};

struct FormatBlock {
    std::string_view       word;  ///< that opens it; empty for the file as a whole
    const FormatBlock*     parent = nullptr;
    const void*            table  = nullptr;  ///< blocks of one table have the same rows
    std::vector<FormatRow> rows;

    const FormatRow* Find(std::string_view keyword) const;
};

struct SceneFormat {
    Transcript  transcript;  ///< of the examples
    FormatBlock file;

    /// Every block, parents first.
    std::vector<const FormatBlock*> Blocks() const;
};

std::unique_ptr<SceneFormat> LearnSceneFormat();

}  // namespace hv
