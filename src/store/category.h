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
    /// The destructor takes no stack for each level: a damaged database can make the tree very deep.
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

    /// Inserts under `parent` (null: as the root, or below the root when there is one already), last or in
    /// the order of the names (ASCII letter case ignored; behind equal names). A reserved GUID becomes zero.
    CClassNode& insert(std::unique_ptr<CClassNode> node, CClassNode* parent, Place place = Place::last);
    [[nodiscard]] CClassNode* find(const Guid& guid);
    /// The categories with this path ("Music/Live", from below the root, or with the root's name in front) or
    /// with just this name. Letter case is ignored where no name matches exactly. Empty: there is none;
    /// several: the name is ambiguous.
    [[nodiscard]] std::vector<CClassNode*> find_named(std::u16string_view name);
    /// All categories, each before those below it.
    [[nodiscard]] std::vector<CClassNode*> all();
    /// Moves a category, with everything below it, under another one. False when that is the category itself
    /// or one below it, and for the root.
    bool move(CClassNode& node, CClassNode& parent, Place place = Place::last);
    /// Moves a category to this place among the children of `parent`, behind them where there are fewer.
    /// False where move() is.
    bool place(CClassNode& node, CClassNode& parent, std::size_t place);
    /// Removes a category: its jobs go to its parent, behind the jobs there, and its sub-categories take its
    /// place. False for the root.
    bool remove(CClassNode& node);
    /// The tree of a first start: "Downloading" (zero GUID) with "Completed" below it.
    static CategoryTree with_defaults(const std::u16string& folder, const Guid& completed);

  private:
    std::unique_ptr<CClassNode> root_;
};

}  // namespace vantlow
