#include "scene/lint.h"
#include "scene/text_file.h"
#include "session/search_paths.h"

#include <cstring>
#include <filesystem>
#include <map>
#include <set>

namespace hv {

namespace {

namespace fs = std::filesystem;

/// A value that names something.
struct Name {
    std::string text;
    Place       place;
    Meaning     meaning;
    std::size_t path_count;  ///< entries of ImageSearchPaths at that line
};

class NameCheck {
public:
    explicit NameCheck(SceneCheck& check) : check_(check)
    {
        for (const SceneText& file : check.files)
            for (const LineRecord& line : file.transcript.lines)
                for (const ValueRecord& value : line.values) Collect(file, line, value);
    }

    void Run()
    {
        CheckFiles();
        CollectShaders();
        for (const Name& name : names_)
            if (name.meaning == Meaning::ShaderUse || name.meaning == Meaning::ShaderFilter) CheckShaderUse(name);
        CheckUnusedShaders();
        CollectObjects();
        CheckInstances();
        CheckCycles();
    }

private:
    void Collect(const SceneText& file, const LineRecord& line, const ValueRecord& value)
    {
        if (value.meaning == Meaning::Plain || value.state == ValueState::Missing) return;
        names_.push_back({value.text, {&file, &line, value.column}, value.meaning, value.path_count});
    }

    // ---- Files ----

    void CheckFiles()
    {
        for (const Name& name : names_) {
            switch (name.meaning) {
            case Meaning::Picture:
                CheckPicture(name, ImageSearchPaths.size());
                break;
            case Meaning::DataPicture:
                CheckPicture(name, name.path_count);
                break;
            case Meaning::ObjFile:
                if (CheckGeometry(name)) CheckMaterials(name);
                break;
            case Meaning::StrandFile:
                CheckGeometry(name);
                break;
            default:
                break;
            }
        }
    }

    // As the image store searches; an empty path names no picture.
    void CheckPicture(const Name& name, std::size_t path_count)
    {
        if (name.text.empty() || !FindPicture(name.text, path_count).empty()) return;
        check_.Error(name.place, "the picture " + Shown(name.text) + " is in none of the folders for pictures");
    }

    bool CheckGeometry(const Name& name)
    {
        if (IsReadableFile(name.text)) return true;
        is_model_missing_           = true;
        const std::string beside    = (fs::path(name.place.file->path).parent_path() / name.text).string();
        const bool        is_beside = !name.text.empty() && IsReadableFile(beside);
        check_.Error(name.place, "the file " + Shown(name.text) + " cannot be opened" +
                                     (is_beside ? ": paths begin in the working folder, not beside this file" : ""));
        return false;
    }

    // The lines are those that the importer takes: the keyword in column 1.
    void CheckMaterials(const Name& model)
    {
        if (!scanned_.insert(model.text).second) return;
        constexpr std::string_view kKeyword = "usemtl";
        TextFile                   file(model.text);
        bool                       is_continued = false;
        for (int number = 1; const char* line = file.NextLine(); number += file.IsCut() ? 0 : 1) {
            if (std::strncmp(line, kKeyword.data(), kKeyword.size()) == 0 && !is_continued) {
                const char* const blank = line + kKeyword.size();
                const char* const word  = blank + std::strspn(blank, kSpace);
                const std::string name(word, std::strcspn(word, kSpace));
                if ((*blank == ' ' || *blank == '\t') && !name.empty())
                    materials_.insert({name, {model.text, number, static_cast<int>(word - line) + 1}});
            }
            is_continued = file.IsCut();
        }
    }

    // ---- Shaders ----

    void CollectShaders()
    {
        shaders_["undefined"] = {};
        for (const Place& section : check_.Sections("shader")) {
            const std::vector<Place> names    = LinesOf(*section.file, section.line->opened, "name");
            const bool               is_named = !names.empty() && !names.back().line->values.empty();
            const std::string        name     = is_named ? names.back().line->values.front().text : "undefined";
            const Place              place    = names.empty() ? section : names.back();
            if (names.empty())
                check_.WarnOfWhole(place, "a shader without a name: it replaces the default, `undefined`");
            if (LinesOf(*section.file, section.line->opened, "surface_shader").empty())
                check_.WarnOfWhole(
                    place, "the shader " + Shown(name) + " has no `surface_shader`: the default takes its place");
            Place& earlier = shaders_[name];
            if (earlier.file != nullptr)
                check_.WarnOfWhole(place, "replaces the shader " + Shown(name) + " of " + LineIn(earlier, place.file));
            earlier = place;
        }
    }

    /// What was meant, for the first unknown names: each search reads all known ones.
    std::string Suggestion(std::string_view name, const std::vector<std::string_view>& known)
    {
        if (suggestions_left_-- <= 0) return "";
        const std::string_view nearest = Nearest(name, known);
        return nearest.empty() ? "" : ": did you mean " + Shown(nearest) + "?";
    }

    std::string NearestShader(std::string_view name)
    {
        std::vector<std::string_view> known;
        if (suggestions_left_ > 0)
            for (const auto& [shader, place] : shaders_) known.push_back(shader);
        return Suggestion(name, known);
    }

    void CheckShaderUse(const Name& name)
    {
        if (name.meaning == Meaning::ShaderUse) used_.insert(name.text);
        if (!shaders_.contains(name.text))
            check_.Error(name.place, "nothing defines the shader " + Shown(name.text) + NearestShader(name.text));
    }

    void CheckUnusedShaders()
    {
        for (const auto& [name, at] : materials_) {
            used_.insert(name);
            if (!shaders_.contains(name))
                check_.ReportFile(at.file, at.line, at.column, true,
                                  "nothing defines the shader " + Shown(name) + NearestShader(name));
        }
        if (is_model_missing_) return;  // it may use any
        for (const auto& [name, place] : shaders_)
            if (place.file != nullptr && name != "undefined" && !used_.contains(name))
                check_.WarnOfWhole(place, "nothing wears the shader " + Shown(name));
    }

    // ---- Objects ----

    struct ObjectNode {
        Place              section;
        std::vector<Place> targets;  ///< values of `object` lines of its instances
    };

    void CollectObjects()
    {
        for (const Place& section : check_.Sections("object")) {
            ObjectNode               node{section, {}};
            const std::vector<Place> names = LinesOf(*section.file, section.line->opened, "name");
            for (const Place& instance : LinesOf(*section.file, section.line->opened, "instance"))
                CollectInstance(node, instance);
            if (!names.empty() && !names.back().line->values.empty()) {
                const std::string& name    = names.back().line->values.front().text;
                const auto [known, is_new] = by_name_.insert({name, objects_.size()});
                if (!is_new)
                    check_.WarnOfWhole(names.back(), "instances of " + Shown(name) +
                                                         " place the first object of that name, " +
                                                         LineIn(objects_[known->second].section, section.file));
            }
            objects_.push_back(std::move(node));
        }
    }

    void CollectInstance(ObjectNode& node, const Place& instance)
    {
        if (instance.line->opened == kNoBlock) return;
        const std::vector<Place> targets = LinesOf(*instance.file, instance.line->opened, "object");
        if (targets.empty())
            check_.Error(instance, "the instance names no `object` to place");
        else
            node.targets.push_back(targets.back());
    }

    static std::string_view TargetOf(const Place& place)
    {
        return place.line->values.empty() ? std::string_view() : place.line->values.front().text;
    }

    void CheckInstances()
    {
        std::vector<std::string_view> known;
        for (const auto& [name, index] : by_name_) known.push_back(name);
        for (const ObjectNode& object : objects_)
            for (const Place& target : object.targets) {
                const std::string_view name = TargetOf(target);
                if (name.empty() || by_name_.contains(name)) continue;
                check_.Error({target.file, target.line, target.line->values.front().column},
                             "nothing defines the object " + Shown(name) + Suggestion(name, known));
            }
    }

    // An instance whose target is still open above it closes a cycle. With a stack of its own: scenes may nest deep.
    void CheckCycles()
    {
        enum State : char { kNew, kOpen, kDone };
        std::vector<State> states(objects_.size(), kNew);
        for (std::size_t start = 0; start < objects_.size(); ++start) {
            if (states[start] != kNew) continue;
            std::vector<std::pair<std::size_t, std::size_t>> stack{{start, 0}};
            states[start] = kOpen;
            while (!stack.empty()) {
                auto& [index, next] = stack.back();
                if (next == objects_[index].targets.size()) {
                    states[index] = kDone;
                    stack.pop_back();
                    continue;
                }
                const Place target = objects_[index].targets[next++];
                const auto  found  = by_name_.find(TargetOf(target));
                if (found == by_name_.end()) continue;
                if (states[found->second] == kOpen)
                    check_.Error(target,
                                 "the object " + Shown(found->first) + " contains itself: this instance is left out");
                if (states[found->second] != kNew) continue;
                states[found->second] = kOpen;
                stack.push_back({found->second, 0});
            }
        }
    }

    struct ModelPlace {
        std::string file;
        int         line, column;
    };

    SceneCheck&                       check_;
    std::vector<Name>                 names_;
    std::map<std::string, Place>      shaders_;    ///< where the section in force names itself; no file: built in
    std::map<std::string, ModelPlace> materials_;  ///< of models: their first use
    std::set<std::string>             scanned_, used_;
    std::vector<ObjectNode>           objects_;
    std::map<std::string, std::size_t, std::less<>> by_name_;  ///< the first object of a name
    bool                                            is_model_missing_ = false;
    int                                             suggestions_left_ = 100;
};

// ---- Values that a later line replaces ----

/// The record that a block fills: blocks of keywords that add have one each, others share that of their place.
std::string RecordOf(const SceneText& file, int block)
{
    if (block == kNoBlock) return {};
    const LineRecord& opener = file.transcript.OpenerOf(block);
    const std::string outer  = RecordOf(file, file.transcript.At(block).parent);
    const bool        adds   = opener.note != nullptr && opener.note->effect == Effect::Adds;
    return outer + '/' + opener.word + (adds ? file.path + ':' + std::to_string(opener.number) : "");
}

/// Pictures of a part may be named anew for the next one.
void ForgetPictures(std::map<std::string, Place>& set_at, const std::string& record)
{
    const auto is_of_record = [&](const auto& entry) { return entry.first.starts_with(record + '/'); };
    for (auto entry = set_at.lower_bound(record + '/'); entry != set_at.end() && is_of_record(*entry);) {
        const auto& values = entry->second.line->values;
        entry =
            !values.empty() && values.front().meaning == Meaning::DataPicture ? set_at.erase(entry) : std::next(entry);
    }
}

}  // namespace

void CheckNames(SceneCheck& check) { NameCheck(check).Run(); }

bool MakesPart(const LineRecord& line)
{
    if (line.note == nullptr || line.note->effect != Effect::Adds || line.values.empty()) return false;
    const Meaning meaning = line.values.front().meaning;
    return meaning == Meaning::ObjFile || meaning == Meaning::StrandFile || meaning == Meaning::DataPicture;
}

void CheckRepeats(SceneCheck& check)
{
    std::map<std::string, Place> set_at;
    for (const SceneText& file : check.files) {
        std::map<int, std::string> records;  // of the blocks of this file
        for (const LineRecord& line : file.transcript.lines) {
            if (line.note == nullptr || line.opened != kNoBlock || line.block == kNoBlock) continue;
            auto record = records.find(line.block);
            if (record == records.end()) record = records.insert({line.block, RecordOf(file, line.block)}).first;
            if (MakesPart(line)) ForgetPictures(set_at, record->second);
            if (line.note->effect != Effect::Sets) continue;
            const Place place{&file, &line, line.column};
            const auto [earlier, is_first] = set_at.insert({record->second + '/' + line.word, place});
            if (is_first) continue;
            check.WarnOfWhole(earlier->second, Shown(line.word) + " is set again in " +
                                                   LineIn(place, earlier->second.file) + ", which counts");
            earlier->second = place;
        }
    }
}

}  // namespace hv
