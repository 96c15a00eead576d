#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/graphics/MediaTimingFunction.h"

#include <functional>

namespace graphics {

// Groups changes made to layers on this thread. Transactions nest; each setting applies to the
// transaction that is open and to those opened inside it, unless they set it again.
//
// - Actions disabled: property changes add no implicit animation (Layer).
// - Animation duration and timing: what implicit animations use (0.25 s and
//   MediaTimingFunction::defaultTiming() when no open transaction sets them).
// - Completion block: runs exactly once, after every animation added while the transaction (or
//   one nested in it) was open has finished or been removed; at commit() when there is none.
//
// Setting anything while no transaction is open, or committing one that was never begun, is a
// programming error and stops the process.
//
//   graphics::Transaction::begin();
//   graphics::Transaction::setDisableActions(true);
//   graphics::Transaction::setCompletionBlock([] { rolled(); });
//   layer->addAnimation(roll, "scroll");
//   graphics::Transaction::commit();
class MCC_EXPORT Transaction {
public:
    Transaction() = delete;

    static void begin();
    static void commit();

    static bool disableActions();
    static void setDisableActions(bool disabled);

    static double animationDuration();
    static void setAnimationDuration(double seconds);

    static MediaTimingFunction animationTimingFunction();
    static void setAnimationTimingFunction(const MediaTimingFunction& timing);

    // Replaces the block of the innermost open transaction.
    static void setCompletionBlock(std::function<void()> block);
};

// A transaction for one scope: begun by the constructor, committed by the destructor.
//
//   {
//       graphics::ScopedTransaction transaction(/*disableActions=*/true);
//       layer->setFrame(rect);
//   }
class MCC_EXPORT ScopedTransaction {
public:
    explicit ScopedTransaction(bool disableActions = false);
    ~ScopedTransaction();
    ScopedTransaction(const ScopedTransaction&) = delete;
    ScopedTransaction& operator=(const ScopedTransaction&) = delete;
};

} // namespace graphics
