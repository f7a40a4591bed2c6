#include "scene/lint.h"

#include <algorithm>
#include <set>

namespace hv {

namespace {

bool IsComment(std::string_view text) { return text.starts_with('#'); }

bool StandsAlone(const LineRecord& line) { return line.rest.empty() || IsComment(line.rest); }

std::string Listed(const std::vector<std::string_view>& words)
{
    std::string text;
    for (const std::string_view word : words) text += (text.empty() ? "\"" : ", \"") + std::string(word) + '"';
    return text;
}

std::string DidYouMean(std::string_view word) { return word.empty() ? "" : ": did you mean " + Shown(word) + "?"; }

// ---- The values of a line ----

class ValueCheck {
public:
    ValueCheck(SceneCheck& check, const SceneText& file, const LineRecord& line, const FormatRow& row)
        : check_(check), file_(file), line_(line), row_(row)
    {
    }

    void Run()
    {
        for (const ValueRecord& value : line_.values)
            if (!CheckValue(value)) return;
        CheckRest();
    }

private:
    void Error(int column, std::string text) { check_.Error({&file_, &line_, column}, std::move(text)); }
    void Warn(int column, std::string text) { check_.Warn({&file_, &line_, column}, std::move(text)); }

    std::string Keyword() const { return Shown(line_.word); }

    std::string Wanted() const
    {
        const std::size_t count = row_.values.size();
        const ValueKind   kind  = row_.values.empty() ? ValueKind::Float : row_.values.front().kind;
        if (kind == ValueKind::Word) return "a word";
        const std::string name = kind == ValueKind::Int ? "whole number" : "number";
        return count == 1 ? "a " + name : std::to_string(count) + " " + name + "s";
    }

    /// False when the rest of the line cannot be judged any more.
    bool CheckValue(const ValueRecord& value)
    {
        switch (value.state) {
        case ValueState::Missing: {
            const auto count = std::count_if(line_.values.begin(), line_.values.end(),
                                             [](const ValueRecord& one) { return one.state == ValueState::Read; });
            Error(value.column, Keyword() + " takes " + Wanted() +
                                    (count > 0 ? ", here are " + std::to_string(count) : ", here is none"));
            return false;
        }
        case ValueState::Unreadable:
            Error(value.column, Shown(value.text) +
                                    (StartsLikeNumber(value.text) ? " is out of range" : " is no number") + ": " +
                                    Keyword() + " takes " + Wanted());
            return false;
        case ValueState::NoQuotes:
            Error(value.column, Keyword() + " takes a text in quotation marks, and is empty without");
            return false;
        case ValueState::Unterminated:
            Error(value.column, "the quotation mark is not closed: the rest of the line is the text");
            return false;
        case ValueState::Skipped:
            return false;
        case ValueState::Read:
            break;
        }
        if (value.is_glued) return CheckGlued(value);
        return CheckChoice(value);
    }

    static bool StartsLikeNumber(std::string_view text)
    {
        const std::size_t first = text.find_first_not_of("+-.");
        return first != text.npos && text[first] >= '0' && text[first] <= '9';
    }

    bool CheckGlued(const ValueRecord& value)
    {
        if (value.kind == ValueKind::Quoted)
            Warn(value.column, "what stands before the quotation mark is not read");
        else
            Error(value.column, "only the beginning of " + Shown(value.text) + " is read, as " +
                                    (value.kind == ValueKind::Int ? "a whole number" : "a number"));
        return false;
    }

    bool CheckChoice(const ValueRecord& value)
    {
        const auto& choices = value.choices;
        if (choices.empty() || std::find(choices.begin(), choices.end(), value.text) != choices.end()) return true;
        const std::string_view nearest = Nearest(value.text, choices);
        if (value.meaning == Meaning::OneOf)
            Error(value.column, Shown(value.text) + " is none of " + Listed(choices) + DidYouMean(nearest));
        else if (!nearest.empty())
            Warn(value.column, Shown(value.text) + " names vertex data" + DidYouMean(nearest));
        return true;
    }

    void CheckRest()
    {
        if (StandsAlone(line_)) return;
        std::string text = "what stands behind " + (line_.values.empty() ? Keyword() : "the values of " + Keyword()) +
                           " is not read: " + Shown(line_.rest);
        if (row_.block != nullptr && row_.block->Find("name") != nullptr)
            text += ": a name has a line of its own, `name`";
        Warn(line_.rest_column, std::move(text));
    }

    SceneCheck&       check_;
    const SceneText&  file_;
    const LineRecord& line_;
    const FormatRow&  row_;
};

// ---- Blocks ----

/// Follows the blocks of a file as its author will have meant them: a misspelt opener opens a block here, though it
/// opens none for the reader, so that one mistake makes one finding.
class BlockCheck {
public:
    BlockCheck(SceneCheck& check, SceneText& file) : check_(check), file_(file), lines_(file.transcript.lines)
    {
        frames_.push_back({&check.format.file, nullptr, kNoCause});
        for (const LineRecord& line : lines_) stray_ends_ += line.word == "end" && line.block == kNoBlock ? 1 : 0;
        for (const BlockRecord& block : file.transcript.blocks) unclosed_blocks_ += block.is_closed ? 0 : 1;
    }

    void Run()
    {
        const std::size_t most = check_.findings.size() + kMostFindings;
        for (index_ = 0; index_ < lines_.size() && check_.findings.size() <= most; ++index_)
            if (!IsComment(Line().word)) CheckLine();
        if (index_ == lines_.size())
            CheckEnd();
        else
            file_.has_broken_blocks = true;  // not worth any more words
    }

private:
    static constexpr int kNoCause = -1;

    /// A block that is open for the author. Without `block` nothing is known of it.
    struct Frame {
        const FormatBlock* block;
        const LineRecord*  opener;
        int                cause;  ///< the finding that says why the reader did not open it
    };

    const LineRecord& Line() const { return lines_[index_]; }
    const Frame&      Top() const { return frames_.back(); }
    bool              IsOutside() const { return frames_.size() == 1; }

    int Error(std::string text)
    {
        check_.Error({&file_, &Line(), Line().column}, std::move(text));
        return static_cast<int>(check_.findings.size()) - 1;
    }

    static std::string Opened(const LineRecord& opener)
    {
        return Shown(opener.word) + " (line " + std::to_string(opener.number) + ")";
    }

    /// Whether the reader is in the block in which the author is.
    bool IsInStep() const
    {
        const int block = Line().block;
        return (block == kNoBlock ? nullptr : file_.transcript.At(block).table) == Top().block->table;
    }

    void CheckLine()
    {
        if (Line().word == "end") return Close();
        if (Top().block == nullptr) return;
        if (const FormatRow* row = Top().block->Find(Line().word))
            CheckKnown(*row);
        else if (IsOutside())
            CheckOutside();
        else
            CheckUnknown();
    }

    // ---- Known keywords ----

    void CheckKnown(const FormatRow& row)
    {
        is_outside_told_ = false;
        int cause        = kNoCause;
        if (IsInStep()) {
            if (!Line().remark.empty()) cause = Error(std::string(Line().remark));
            ValueCheck(check_, file_, Line(), row).Run();
            CheckEffect(*row.note);
        }
        if (row.block == nullptr) return;
        frames_.push_back({row.block.get(), &Line(), cause});
        if (cause != kNoCause) file_.has_broken_blocks = true;
    }

    void CheckEffect(const Note& note)
    {
        const Place at{&file_, &Line(), Line().column};
        if (note.effect == Effect::None)  // the help of these begins with "none"
            check_.Warn(at, Shown(Line().word) + " has no effect" + std::string(note.help.substr(4)));
        const auto is_inside = [&](const Frame& frame) { return frame.block && frame.block->word == note.only_in; };
        if (!note.only_in.empty() && std::none_of(frames_.begin(), frames_.end(), is_inside))
            check_.Warn(at, Shown(Line().word) + " has an effect in " + Shown(note.only_in) + " only");
    }

    void Close()
    {
        if (!StandsAlone(Line()))
            check_.Warn({&file_, &Line(), Line().rest_column},
                        "what stands behind `end` is not read: " + Shown(Line().rest));
        if (IsOutside()) {
            file_.has_broken_blocks = true;
            if (!is_outside_told_) Error("this `end` closes nothing: it stands outside of any section");
            return;
        }
        const int cause = Top().cause;
        frames_.pop_back();
        if (cause == kNoCause) return;
        std::string& text = check_.findings[static_cast<std::size_t>(cause)].text;
        text += "; it opens no block, so the `end` of line " + std::to_string(Line().number);
        text += Line().closes ? " closes " + Opened(file_.transcript.OpenerOf(Line().block)) : " is one too many";
    }

    // ---- Unknown ones ----

    static std::vector<std::string_view> WordsOf(const FormatBlock& block)
    {
        std::vector<std::string_view> words;
        for (const FormatRow& row : block.rows) words.push_back(row.word);
        return words;
    }

    std::vector<std::string_view> AllWords() const
    {
        std::vector<std::string_view> words;
        for (const FormatBlock* block : check_.format.Blocks())
            for (const FormatRow& row : block->rows) words.push_back(row.word);
        return words;
    }

    /// Up to three kinds of blocks that know the word, those inside the present one first.
    std::string BlocksKnowing(std::string_view word) const
    {
        std::vector<const FormatBlock*> blocks = check_.format.Blocks();
        std::stable_partition(blocks.begin(), blocks.end(),
                              [&](const FormatBlock* block) { return block->parent == Top().block; });
        std::string           text;
        std::set<const void*> tables;
        for (const FormatBlock* block : blocks) {
            if (block->word.empty() || block->Find(word) == nullptr || tables.size() == 3) continue;
            if (tables.insert(block->table).second) text += (text.empty() ? "" : ", ") + Shown(block->word);
        }
        return text;
    }

    /// The block that a word opens somewhere, inside the present block before others.
    const FormatBlock* BlockOpenedBy(std::string_view word) const
    {
        const FormatBlock* found = nullptr;
        for (const FormatBlock* block : check_.format.Blocks()) {
            const FormatRow* const row = block->Find(word);
            if (row != nullptr && row->block != nullptr && found == nullptr) found = row->block.get();
        }
        return found;
    }

    /// The word of the next line that is no comment; empty at the end of the file.
    std::string_view NextWord() const
    {
        for (std::size_t i = index_ + 1; i < lines_.size(); ++i)
            if (!IsComment(lines_[i].word)) return lines_[i].word;
        return {};
    }

    /// Whether a word that stands alone will have been meant to open a block: the next line is no keyword here.
    bool LooksLikeOpener() const
    {
        const std::string_view next = NextWord();
        return StandsAlone(Line()) && !next.empty() &&
               (stray_ends_ > 0 || (next != "end" && Top().block->Find(next) == nullptr));
    }

    void OpenInMind(const FormatBlock* block, int cause)
    {
        is_outside_told_        = false;
        file_.has_broken_blocks = true;
        frames_.push_back({block, &Line(), cause});
    }

    void CheckOutside()
    {
        const std::string_view nearest = Nearest(Line().word, WordsOf(*Top().block));
        if (!nearest.empty() && LooksLikeOpener()) {
            const int cause = Error("unknown section " + Shown(Line().word) + DidYouMean(nearest));
            return OpenInMind(Top().block->Find(nearest)->block.get(), cause);
        }
        const bool is_told = is_outside_told_;
        is_outside_told_   = true;
        if (is_told) return;
        const std::string blocks = BlocksKnowing(Line().word);
        Error(Shown(Line().word) + " stands outside of any section and is not read" +
              (blocks.empty() ? DidYouMean(nearest) : ": it is a keyword of " + blocks));
        if (const FormatBlock* block = BlockOpenedBy(Line().word); block != nullptr && LooksLikeOpener())
            OpenInMind(block, kNoCause);
    }

    /// A word that stands alone and is almost `end` closes the block in mind, where the reader goes on in it.
    bool CloseMisspelt()
    {
        if (!StandsAlone(Line()) || Nearest(Line().word, {"end"}).empty()) return false;
        Error(Shown(Line().word) + " does not close " + Opened(*Top().opener) + DidYouMean("end"));
        file_.has_broken_blocks = true;
        frames_.pop_back();
        return true;
    }

    void CheckUnknown()
    {
        if (CloseMisspelt() || CloseForgotten()) return;
        const std::string what    = Shown(Line().word) + " is no keyword of " + Opened(*Top().opener);
        const auto        nearest = Nearest(Line().word, WordsOf(*Top().block));
        const std::string blocks  = BlocksKnowing(Line().word);
        if (!blocks.empty()) {
            const int cause = Error(what + ", but of " + blocks);
            if (const FormatBlock* block = BlockOpenedBy(Line().word); block != nullptr && LooksLikeOpener())
                OpenInMind(block, cause);
            return;
        }
        const int cause = Error(what + DidYouMean(nearest.empty() ? Nearest(Line().word, AllWords()) : nearest));
        if (!LooksLikeOpener()) return;
        const FormatRow* const row = nearest.empty() ? nullptr : Top().block->Find(nearest);
        if (row != nullptr && row->block != nullptr)
            OpenInMind(row->block.get(), cause);
        else if (row == nullptr && stray_ends_ > 0)
            OpenInMind(nullptr, cause);
    }

    /// A keyword of a block around this one tells of a forgotten `end`: for certain if it opens a block, or if blocks
    /// are left open at the end of the file.
    bool CloseForgotten()
    {
        for (std::size_t outer = frames_.size() - 1; outer-- > 0;) {
            const FormatRow* const row = frames_[outer].block ? frames_[outer].block->Find(Line().word) : nullptr;
            if (row == nullptr) continue;
            if (row->block == nullptr && unclosed_blocks_ == 0) return false;
            Error(Shown(Line().word) + " is no keyword of " + Opened(*Top().opener) +
                  ": is an `end` missing above this line?");
            file_.has_broken_blocks = true;
            frames_.resize(outer + 1);
            if (row->block != nullptr) OpenInMind(row->block.get(), kNoCause);
            return true;
        }
        return false;
    }

    // ---- The end of the file ----

    void CheckEnd()
    {
        while (frames_.size() > 1 && Top().block == nullptr) frames_.pop_back();
        if (frames_.size() > 1) {
            std::string text = Shown(Top().opener->word) + " is not closed: an `end` is missing";
            for (std::size_t i = frames_.size() - 1; i-- > 1;)
                text += (i + 2 == frames_.size() ? ", nor is " : ", ") + Opened(*frames_[i].opener);
            check_.Error({&file_, Top().opener, Top().opener->column}, std::move(text));
        } else if (!file_.has_broken_blocks && unclosed_blocks_ > 0) {
            check_.ReportFile(file_.path, 0, 0, true, "blocks are open at the end of the file");
        }
        if (unclosed_blocks_ > 0) file_.has_broken_blocks = true;
        if (const int line = file_.transcript.long_line; line > 0)
            check_.ReportFile(file_.path, line, 1, true,
                              "the line is longer than 4095 characters: nothing is read from here on");
    }

    SceneCheck&                    check_;
    SceneText&                     file_;
    const std::vector<LineRecord>& lines_;
    std::size_t                    index_ = 0;
    std::vector<Frame>             frames_;                                ///< the first is the file
    int                            stray_ends_ = 0, unclosed_blocks_ = 0;  ///< as the reader saw them
    bool                           is_outside_told_ = false;  ///< of the present run of lines outside of sections
};

}  // namespace

void CheckLines(SceneCheck& check, SceneText& file) { BlockCheck(check, file).Run(); }

}  // namespace hv
