#include "scene/format.h"

#include "scene/scene.h"
#include "scene/scratch.h"
#include "scene/text_file.h"

#include <algorithm>
#include <cstddef>

namespace hv {

namespace {

/// Writes the file while it is read: whatever block the reader is in, the next line is that block's next keyword with
/// its example, and `end` when there is none left.
class ExampleLines final : public LineSource {
public:
    explicit ExampleLines(const Transcript& transcript) : transcript_(transcript) {}

    const char* NextLine() override
    {
        const std::size_t depth = Depth();
        next_row_.resize(depth + 1, 0);
        const std::vector<KeywordView>& rows =
            transcript_.open == kNoBlock ? transcript_.sections : transcript_.At(transcript_.open).rows;
        if (next_row_[depth] >= rows.size()) return EndBlock(next_row_[depth]++ == rows.size());
        const KeywordView& row = rows[next_row_[depth]++];
        line_                  = row.word;
        if (!row.note->example.empty()) line_.append(" ").append(row.note->example);
        return line_.c_str();
    }

private:
    /// After the rows, the line that shows the block's use, where its note has one: the rows have kept the defaults.
    const char* EndBlock(bool is_shown)
    {
        if (transcript_.open == kNoBlock) return nullptr;
        const std::string_view inside = transcript_.OpenerOf(transcript_.open).note->inside;
        line_                         = is_shown && !inside.empty() ? inside : "end";
        return line_.c_str();
    }

    std::size_t Depth() const
    {
        std::size_t depth = 0;
        for (int block = transcript_.open; block != kNoBlock; block = transcript_.At(block).parent) ++depth;
        return depth;
    }

    const Transcript&        transcript_;
    std::vector<std::size_t> next_row_;  ///< of each block under way, from the file inwards
    std::string              line_;
};

/// Moves what was read of a block's lines into its rows, from `line` on; returns the line behind the block.
std::size_t FillBlock(FormatBlock& block, const Transcript& transcript, std::size_t line)
{
    for (; line < transcript.lines.size(); ++line) {
        const LineRecord& record = transcript.lines[line];
        if (record.closes) return line;
        if (record.block != kNoBlock && block.rows.size() == transcript.At(record.block).rows.size()) continue;
        FormatRow& row = block.rows.emplace_back();
        row.note       = record.note;
        row.values     = record.values;
        if (record.opened == kNoBlock) {
            row.word = record.word;
            continue;
        }
        const BlockRecord& opened = transcript.At(record.opened);
        row.word                  = record.word;
        row.block                 = std::make_unique<FormatBlock>();
        row.block->word           = record.word;
        row.block->table          = opened.table;
        line                      = FillBlock(*row.block, transcript, line + 1);
    }
    return line;
}

void SetParents(FormatBlock& block)
{
    for (FormatRow& row : block.rows) {
        if (row.block == nullptr) continue;
        row.block->parent = &block;
        SetParents(*row.block);
    }
}

void AppendBlocks(const FormatBlock& block, std::vector<const FormatBlock*>& blocks)
{
    blocks.push_back(&block);
    for (const FormatRow& row : block.rows)
        if (row.block != nullptr) AppendBlocks(*row.block, blocks);
}

}  // namespace

const FormatRow* FormatBlock::Find(std::string_view keyword) const
{
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const FormatRow& row) { return row.word == keyword; });
    return found != rows.end() ? &*found : nullptr;
}

std::vector<const FormatBlock*> SceneFormat::Blocks() const
{
    std::vector<const FormatBlock*> blocks;
    AppendBlocks(file, blocks);
    return blocks;
}

std::unique_ptr<SceneFormat> LearnSceneFormat()
{
    const ScratchSession scratch;
    auto                 format = std::make_unique<SceneFormat>();
    ReadSceneLines(std::make_unique<ExampleLines>(format->transcript), format->transcript);
    FillBlock(format->file, format->transcript, 0);
    SetParents(format->file);
    return format;
}

}  // namespace hv
