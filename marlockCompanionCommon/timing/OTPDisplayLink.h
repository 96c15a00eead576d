#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/timing/DisplayLink.h"

#include <QObject>

#include <functional>
#include <memory>

// Calls a block once per refresh of the primary screen, on the display link's own thread (not
// the main thread): the block must be safe there, and moving work to the main thread is the
// caller's affair.
//
// stop() and the destructor never wait for the link's thread. Once either has returned no new
// call of the block starts, but a call already running finishes on the link's thread. So a block
// that waits for the main thread (a Qt::BlockingQueuedConnection call, a semaphore the main
// thread releases) cannot deadlock a stop() or a destruction made on the main thread. The
// block is kept alive until its last call has returned and never reaches this object after it
// is gone; what the block itself captures must live as long (capture shared state, not
// references to objects the main thread destroys right after stop()).
//
// The block may be replaced at any time, also while running; it takes effect from the next
// frame.
//
//   OTPDisplayLink link;
//   auto progress = std::make_shared<std::atomic<double>>();
//   link.setCallback([progress] { progress->store(fractionOfPeriod()); });
//   link.start();
//   …
//   link.stop();
class MCC_EXPORT OTPDisplayLink : public QObject {
    Q_OBJECT
public:
    using Callback = std::function<void()>;

    // Creates the display link (stopped) and installs the per-frame call of the block.
    explicit OTPDisplayLink(QObject* parent = nullptr);
    // Stops the display link, without waiting for its thread (see above).
    ~OTPDisplayLink() override;
    Q_DISABLE_COPY(OTPDisplayLink)

    // Starts and stops the frames; both do nothing without a display link.
    Q_INVOKABLE void start();
    Q_INVOKABLE void stop();
    // Invokes the block, if there is one, on the calling thread.
    Q_INVOKABLE void update();

    Callback callback() const;
    void setCallback(Callback callback);

    // The display link this object owns (null when none could be made).
    DisplayLink* displayLink() const { return displayLink_.get(); }
    // Replaces the display link, destroying (and so stopping) the old one. The new one is used
    // as it is: no output callback is installed on it.
    void setDisplayLink(std::unique_ptr<DisplayLink> displayLink) { displayLink_ = std::move(displayLink); }

private:
    struct Block;

    void commonInit();

    // Shared with the display link's thread, so a frame never needs this object.
    const std::shared_ptr<Block> block_;
    std::unique_ptr<DisplayLink> displayLink_;
};
