// The tree of categories that jobs are filed in.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "store/job_sequence.h"

namespace vantlow {

/// One category: a node of the tree. Owns its jobs and its sub-categories.
class CClassNode {
  public:
    CClassNode() = default;
    CClassNode(const CClassNode&) = delete;
    CClassNode& operator=(const CClassNode&) = delete;
    /// Takes no stack for each level: a tree may be as deep as a damaged database makes it.
    virtual ~CClassNode();

    Guid identity;  ///< all zero for the root
    std::u16string name;
    std::u16string folder;  ///< download folder of the jobs filed here
    JobSequence jobs;       ///< in display order
    std::vector<std::unique_ptr<CClassNode>> children;
    CClassNode* parent = nullptr;
};

/// The markers of the job database around the sub-categories of a category.
Guid descend_marker() noexcept;
Guid ascend_marker() noexcept;
/// The GUIDs (1, 0) and (2, 0) mean "descend" and "ascend" in the database and belong to no category.
bool is_reserved_category(const Guid& guid) noexcept;

/// The tree. One thread at a time.
class CategoryTree {
  public:
    enum class Place { last, sorted };

    /// The first category that is inserted, or null.
    [[nodiscard]] CClassNode* root() noexcept { return root_.get(); }
    [[nodiscard]] const CClassNode* root() const noexcept { return root_.get(); }

    /// Inserts under `parent` (null: as the root, or beside it under the root when there is one already),
    /// last or in the order of the names (without regard to ASCII letter case; behind its equals). A reserved
    /// GUID becomes zero.
    CClassNode& insert(std::unique_ptr<CClassNode> node, CClassNode* parent, Place place = Place::last);
    [[nodiscard]] CClassNode* find(const Guid& guid);
    /// The category of this path ("Music/Live", from below the root, or with the root's name in front) or of
    /// this name alone, letter case ignored where no name is written just so. Empty: none has it; several:
    /// the name is not enough.
    [[nodiscard]] std::vector<CClassNode*> find_named(std::u16string_view name);
    /// All categories, each before those below it.
    [[nodiscard]] std::vector<CClassNode*> all();
    /// Puts a category with all that is below it under another one. False when that is the category itself or
    /// below it, or when the category is the root.
    bool move(CClassNode& node, CClassNode& parent, Place place = Place::last);
    /// Puts a category at this place among the children of `parent`, behind them where there are fewer. False
    /// where move() would be.
    bool place(CClassNode& node, CClassNode& parent, std::size_t place);
    /// Removes a category: its jobs go to the one above it, behind those that are there, and its
    /// sub-categories take its place. False for the root.
    bool remove(CClassNode& node);
    /// What a first start begins with: "Downloading" (zero GUID) with "Completed" under it.
    static CategoryTree with_defaults(const std::u16string& folder, const Guid& completed);

  private:
    std::unique_ptr<CClassNode> root_;
};

}  // namespace vantlow
