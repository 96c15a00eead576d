#include "marlockCompanionCommon/graphics/Transaction.h"

#include "marlockCompanionCommon/graphics/internal/CompletionGroup.h"
#include "marlockCompanionCommon/platform/runtime/FatalError.h"

#include <optional>
#include <vector>

namespace graphics {
namespace {

constexpr double defaultAnimationDuration = 0.25;

struct Frame {
    std::optional<bool> disableActions;
    std::optional<double> animationDuration;
    std::optional<MediaTimingFunction> timingFunction;
    std::shared_ptr<internal::CompletionGroup> group = std::make_shared<internal::CompletionGroup>();
};

// Layers belong to the thread that changes them, so each thread has its own transactions.
thread_local std::vector<Frame> openFrames;

Frame& innermostFrame(const char* operation) {
    if (openFrames.empty())
        platform::fatalError(
            QStringLiteral("Transaction::%1 without an open transaction").arg(QLatin1String(operation)));
    return openFrames.back();
}

// The innermost open transaction's setting, else the default.
template <typename T> T lookup(std::optional<T> Frame::*setting, T fallback) {
    for (auto frame = openFrames.rbegin(); frame != openFrames.rend(); ++frame) {
        if ((*frame).*setting)
            return *((*frame).*setting);
    }
    return fallback;
}

} // namespace

void Transaction::begin() {
    openFrames.emplace_back();
}

void Transaction::commit() {
    auto group = innermostFrame("commit").group;
    // Off the stack first: a completion block that runs now may begin transactions of its own.
    openFrames.pop_back();
    group->committed();
}

bool Transaction::disableActions() {
    return lookup(&Frame::disableActions, false);
}

void Transaction::setDisableActions(bool disabled) {
    innermostFrame("setDisableActions").disableActions = disabled;
}

double Transaction::animationDuration() {
    return lookup(&Frame::animationDuration, defaultAnimationDuration);
}

void Transaction::setAnimationDuration(double seconds) {
    innermostFrame("setAnimationDuration").animationDuration = seconds;
}

MediaTimingFunction Transaction::animationTimingFunction() {
    return lookup(&Frame::timingFunction, MediaTimingFunction::defaultTiming());
}

void Transaction::setAnimationTimingFunction(const MediaTimingFunction& timing) {
    innermostFrame("setAnimationTimingFunction").timingFunction = timing;
}

void Transaction::setCompletionBlock(std::function<void()> block) {
    innermostFrame("setCompletionBlock").group->setBlock(std::move(block));
}

ScopedTransaction::ScopedTransaction(bool disableActions) {
    Transaction::begin();
    if (disableActions)
        Transaction::setDisableActions(true);
}

ScopedTransaction::~ScopedTransaction() {
    Transaction::commit();
}

namespace internal {

void CompletionGroup::animationEnded() {
    --pending_;
    runIfDone();
}

void CompletionGroup::committed() {
    committed_ = true;
    runIfDone();
}

void CompletionGroup::runIfDone() {
    if (!committed_ || pending_ > 0 || !block_)
        return;
    // Moved out before the call, so the block runs once even if it ends more animations.
    auto block = std::move(block_);
    block_ = nullptr;
    block();
}

std::vector<std::shared_ptr<CompletionGroup>> openCompletionGroups() {
    std::vector<std::shared_ptr<CompletionGroup>> groups;
    groups.reserve(openFrames.size());
    for (const Frame& frame : openFrames)
        groups.push_back(frame.group);
    return groups;
}

CompletionToken::CompletionToken()
    : groups_(openCompletionGroups()) {
    for (const auto& group : groups_)
        group->animationAdded();
}

CompletionToken::~CompletionToken() {
    for (const auto& group : groups_)
        group->animationEnded();
}

} // namespace internal
} // namespace graphics
