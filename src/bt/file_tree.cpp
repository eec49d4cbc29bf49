#include "bt/file_tree.h"

#include "bt/hash_tree.h"

namespace vantlow {
namespace {

constexpr std::size_t most_files = 1'000'000;
constexpr std::size_t most_depth = 64;
constexpr std::size_t most_path_bytes = std::size_t{256} << 20U;

/// A folder that is being read.
struct Level {
    const CBEDictionary* folder;
    std::size_t next;
    std::string path;
};

// A file stands as a dictionary whose only key is the empty one.
const CBEDictionary* facts_of_file(const CBEDictionary& entry) noexcept {
    const bool is_file = entry.keys.size() == 1 && entry.keys.front()->data.empty();
    return is_file ? as_dictionary(entry.values.front().get()) : nullptr;
}

std::optional<TreeFile> read_file(const CBEDictionary& facts, std::string path) {
    const CBEInteger* const length = facts.find_integer("length");
    if (length == nullptr || length->value < 0) return std::nullopt;
    TreeFile file{std::move(path), length->value, {}};
    const CBEString* const root = facts.find_string("pieces root");
    if (file.length == 0) return file;
    if (root == nullptr || root->data.size() != file.root.size()) return std::nullopt;
    file.root = node_of(root->data);
    return file;
}

}  // namespace

std::optional<std::vector<TreeFile>> read_file_tree(const CBEDictionary& info) {
    const CBEDictionary* const tree = info.find_dictionary("file tree");
    if (tree == nullptr) return std::nullopt;
    std::vector<TreeFile> files;
    std::size_t path_bytes = 0;
    std::vector<Level> levels{{tree, 0, {}}};
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.folder->keys.size()) {
            levels.pop_back();
            continue;
        }
        const std::string& name = level.folder->keys[level.next]->data;
        const CBEDictionary* const entry = as_dictionary(level.folder->values[level.next].get());
        ++level.next;
        if (name.empty() || entry == nullptr) return std::nullopt;
        path_bytes += level.path.size() + name.size() + 1;
        if (path_bytes > most_path_bytes) return std::nullopt;
        std::string path = level.path + "\\" + name;
        if (const CBEDictionary* const facts = facts_of_file(*entry)) {
            auto file = read_file(*facts, std::move(path));
            if (!file || files.size() == most_files) return std::nullopt;
            files.push_back(*std::move(file));
        } else {
            if (levels.size() == most_depth) return std::nullopt;
            levels.push_back({entry, 0, std::move(path)});
        }
    }
    if (files.empty()) return std::nullopt;
    return files;
}

bool has_second_version(const CBEDictionary& info) noexcept {
    const CBEInteger* const version = info.find_integer("meta version");
    return version != nullptr && version->value == 2 && info.find_dictionary("file tree") != nullptr;
}

bool is_second_version_alone(const CBEDictionary& info) noexcept {
    return has_second_version(info) && info.find("pieces") == nullptr && info.find("files") == nullptr &&
           info.find("length") == nullptr;
}

bool is_single_file(const CBEDictionary& info) noexcept {
    const CBEDictionary* const tree = info.find_dictionary("file tree");
    const CBEString* const name = info.find_string("name");
    if (tree == nullptr || name == nullptr || tree->keys.size() != 1) return false;
    const CBEDictionary* const entry = as_dictionary(tree->values.front().get());
    return entry != nullptr && facts_of_file(*entry) != nullptr && tree->keys.front()->data == name->data;
}

}  // namespace vantlow
