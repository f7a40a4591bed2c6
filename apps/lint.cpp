#include "lint.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <system_error>

#include "hvx.h"

namespace {

namespace fs = std::filesystem;

constexpr int kClean = 0, kFindings = 1, kUsage = 2;

/// The folder under check as it was given, and as the library was told of it.
struct Folder {
    std::string given;
    fs::path    absolute;
};

/// Path of a file as seen from where the program was started: files of the scene under the folder as it was given.
std::string PathShown(const Folder& folder, const char* file)
{
    std::error_code error;
    const fs::path  absolute = fs::absolute(file, error).lexically_normal();
    const fs::path  inside   = absolute.lexically_relative(folder.absolute);
    if (error || inside.empty() || *inside.begin() == "..") return file;
    return inside == "." ? folder.given : (fs::path(folder.given) / inside).string();
}

void OnFinding(const hvxFinding* finding, void* user)
{
    std::string line = PathShown(*static_cast<const Folder*>(user), finding->file);
    if (finding->line > 0) line += ':' + std::to_string(finding->line) + ':' + std::to_string(finding->column);
    std::printf("%s: %s: %s\n", line.c_str(), finding->is_error ? "error" : "warning", finding->text);
}

int Fail(const std::string& message)
{
    std::fprintf(stderr, "halvorne lint: %s\n", message.c_str());
    return kUsage;
}

int Lint(const std::string& scene, bool keep_folder)
{
    std::error_code error;
    Folder          folder{scene, fs::canonical(scene, error)};
    if (error || !fs::is_directory(folder.absolute, error)) return Fail("'" + scene + "' is not a folder");
    // As for a render: geometry paths are relative to the working folder, the scene's own "image" folder is searched.
    if (!keep_folder) fs::current_path(folder.absolute, error);
    if (error) return Fail("cannot enter '" + scene + "'");
    const int count = hvxCheckScene((folder.absolute.string() + "/").c_str(), OnFinding, &folder);
    if (count < 0) return Fail("cannot read '" + scene + "'");
    return count > 0 ? kFindings : kClean;
}

int RunLint(int argument_count, char** arguments)
{
    CLI::App app(
        "Tells what is wrong in the files of a scene folder, one finding a line, as\n"
        "file:line:column: error|warning: text. Exit status 0: nothing, 1: findings, 2: no scene to check.",
        "halvorne lint");
    std::string scene;
    bool        keep_folder = false;
    app.add_option("scene-folder", scene, "folder with shader, render, light, camera and geometry")->required();
    app.add_flag("--no-chdir", keep_folder, "geometry paths of the scene are relative to the present folder");
    try {
        app.parse(argument_count, arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, std::cout, std::cerr) == 0 ? kClean : kUsage;
    }
    return Lint(scene, keep_folder);
}

int RunKeywords(int argument_count)
{
    if (argument_count > 1) return Fail("'keywords' takes no arguments");
    hvxListKeywords([](const char* line, void*) { std::puts(line); }, nullptr);
    return kClean;
}

}  // namespace

std::optional<int> RunCommand(int argument_count, char** arguments)
{
    const std::string_view command = argument_count > 1 ? arguments[1] : "";
    if (command == "lint") return RunLint(argument_count - 1, arguments + 1);
    if (command == "keywords") return RunKeywords(argument_count - 1);
    return std::nullopt;
}
