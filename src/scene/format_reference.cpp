#include "scene/format.h"
#include "scene/scene.h"

#include <map>
#include <set>

namespace hv {

namespace {

std::string Code(std::string_view text)
{
    std::string code = "`";
    code.append(text).append("`");
    return code;
}

// "3 floats", "2 ints"; a list of words where only those are known.
std::string TypeOf(const FormatRow& row)
{
    if (row.block != nullptr) return "block";
    if (row.values.empty()) return "stands alone";
    const ValueRecord& first = row.values.front();
    if (!first.choices.empty()) {
        std::string words = "quoted: ";
        for (const std::string_view word : first.choices)
            words += (word == first.choices.front() ? "" : ", ") + Code(word);
        return words + (first.meaning == Meaning::OneOfOrOther ? ", or any other" : "");
    }
    if (first.kind == ValueKind::Word) return "word";
    if (first.kind == ValueKind::Quoted) return "quoted";
    const std::string name = first.kind == ValueKind::Int ? "int" : "float";
    return row.values.size() == 1 ? name : std::to_string(row.values.size()) + " " + name + "s";
}

std::string JoinedDefaults(const FormatRow& row)
{
    std::string text;
    for (const ValueRecord& value : row.values) text += (text.empty() ? "" : " ") + value.before;
    return text;
}

// Of a block that holds a colour, that colour: elements differ in nothing else.
std::string DefaultOf(const FormatRow& row)
{
    if (row.block == nullptr) return JoinedDefaults(row);
    const FormatRow* const color = row.block->Find("color");
    const FormatRow* const image = row.block->Find("fresnel");
    return color != nullptr && image != nullptr ? "color " + JoinedDefaults(*color) : "";
}

std::string EffectOf(const Note& note)
{
    std::string text(note.help);
    if (!note.only_in.empty()) text += " (in " + Code(note.only_in) + " only)";
    if (note.effect == Effect::Adds) text += " (each one adds)";
    return text;
}

std::string LineOf(const FormatRow& row)
{
    std::string line(row.word);
    if (!row.note->example.empty()) line.append(" ").append(row.note->example);
    return line;
}

// The line that shows a block's use: its own, or the first that has values and an effect.
std::string LineInside(const FormatRow& opener)
{
    if (!opener.note->inside.empty()) return std::string(opener.note->inside);
    for (const FormatRow& row : opener.block->rows)
        if (!row.values.empty() && row.note->effect != Effect::None) return LineOf(row);
    return "";
}

std::string ExampleOf(const FormatRow& row)
{
    return row.block == nullptr ? Code(LineOf(row)) : Code(row.word) + " " + Code(LineInside(row)) + " " + Code("end");
}

void AppendRow(std::string& text, const FormatRow& row)
{
    const std::string value = DefaultOf(row);
    for (const std::string& cell : {Code(row.word), TypeOf(row), std::string(row.note->unit),
                                    value.empty() ? "" : Code(value), EffectOf(*row.note), ExampleOf(row)})
        text.append("| ").append(cell).append(cell.empty() ? "" : " ");
    text.append("|\n");
}

void AppendTable(std::string& text, const FormatBlock& block, std::string_view name)
{
    text.append("<!-- keywords of ").append(name).append(" -->\n");
    text += "| keyword | value | unit | default | effect | example |\n|---|---|---|---|---|---|\n";
    for (const FormatRow& row : block.rows) AppendRow(text, row);
    text += "<!-- end -->\n";
}

}  // namespace

std::string SceneFormatReference()
{
    const std::unique_ptr<SceneFormat>                format = LearnSceneFormat();
    std::map<const void*, std::set<std::string_view>> openers;
    for (const FormatBlock* block : format->Blocks()) openers[block->table].insert(block->word);

    std::string           text;
    std::set<const void*> told;
    for (const FormatBlock* block : format->Blocks()) {
        const bool is_element = openers[block->table].size() > 1;  // elements alone share a table
        if (told.insert(block->table).second)
            AppendTable(text, *block, is_element ? "an element" : block->word.empty() ? "a file" : block->word);
    }
    return text;
}

}  // namespace hv
