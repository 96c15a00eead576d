#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace graphics::internal {

// The animations added while one transaction was open, counted until the last has ended, so
// that the transaction's completion block runs exactly once and only after its commit.
class CompletionGroup {
public:
    void setBlock(std::function<void()> block) { block_ = std::move(block); }
    void animationAdded() { ++pending_; }
    void animationEnded();
    void committed();

private:
    void runIfDone();

    std::function<void()> block_;
    int pending_ = 0;
    bool committed_ = false;
};

// The groups of every open transaction on this thread, outermost first: an animation added now
// belongs to each of them.
std::vector<std::shared_ptr<CompletionGroup>> openCompletionGroups();

// Held by a running animation: tells its groups once that it has ended (finished, replaced or
// removed), when it is destroyed.
class CompletionToken {
public:
    CompletionToken();
    ~CompletionToken();
    CompletionToken(const CompletionToken&) = delete;
    CompletionToken& operator=(const CompletionToken&) = delete;

private:
    std::vector<std::shared_ptr<CompletionGroup>> groups_;
};

} // namespace graphics::internal
