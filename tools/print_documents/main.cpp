/// print_documents: writes the documents that are made from the product's tables.
///
///   print_documents <folder>            writes them; a file that is current already is left alone
///   print_documents --check <folder>    says whether they are current, and where not; writes nothing
///
/// Exit code 0 when all are (now) current, 1 when one is not, 2 for wrong arguments.

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "tools/print_documents/documents.h"

namespace {

std::optional<std::string> ReadAll(const char* path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

bool WriteAll(const char* path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    return file.good();
}

std::string_view TakeLine(std::string_view& rest) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    return line;
}

/// Both texts differ.
void PrintFirstDifference(const char* path, std::string_view found, std::string_view wanted) {
    for (int number = 1;; ++number) {
        const bool one_ends = found.empty() || wanted.empty();
        const std::string is(TakeLine(found));
        const std::string should(TakeLine(wanted));
        if (is == should && !one_ends) continue;
        std::fprintf(stderr, "%s:%d: not what the table says; run ./dev documents\n  is:     %s\n  should: %s\n", path,
                     number, is.c_str(), should.c_str());
        return;
    }
}

int Check(const char* path, const std::string& wanted) {
    const std::optional<std::string> found = ReadAll(path);
    if (found == wanted) return 0;
    PrintFirstDifference(path, found.value_or(""), wanted);
    return 1;
}

int Write(const char* path, const std::string& wanted) {
    if (ReadAll(path) == wanted) return 0;
    if (WriteAll(path, wanted)) return 0;
    std::fprintf(stderr, "%s: cannot be written\n", path);
    return 1;
}

int ForAll(const std::string& folder, int (*act)(const char* path, const std::string& wanted)) {
    const int texts = act((folder + "/texts.md").c_str(), print_documents::TextsDocument());
    const int commands = act((folder + "/verification-commands.md").c_str(), print_documents::CommandsDocument());
    return std::max(texts, commands);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::string_view(argv[1]).substr(0, 2) != "--") return ForAll(argv[1], Write);
    if (argc == 3 && std::string_view(argv[1]) == "--check") return ForAll(argv[2], Check);
    std::fprintf(stderr, "usage: print_documents [--check] <folder>\n");
    return 2;
}
