#include "marlockCompanionCommon/timing/OTPDisplayLink.h"

#include <mutex>
#include <utility>

// The current block. A frame takes a reference to it under the lock and calls it after letting
// go, so replacing it or destroying the object never waits for a call in progress.
struct OTPDisplayLink::Block {
    mutable std::mutex mutex;
    std::shared_ptr<const Callback> callback;

    std::shared_ptr<const Callback> current() const {
        std::lock_guard lock(mutex);
        return callback;
    }
    void invoke() const {
        if (const std::shared_ptr<const Callback> block = current(); block && *block)
            (*block)();
    }
};

OTPDisplayLink::OTPDisplayLink(QObject* parent)
    : QObject(parent)
    , block_(std::make_shared<Block>()) {
    commonInit();
}

OTPDisplayLink::~OTPDisplayLink() {
    // Frames after this find no block, and the display link's destruction stops the thread.
    setCallback({});
    displayLink_.reset();
}

void OTPDisplayLink::commonInit() {
    displayLink_ = DisplayLink::createWithActiveDisplays();
    if (displayLink_)
        displayLink_->setOutputCallback(
            [block = block_](const DisplayLink::FrameTimes&) { block->invoke(); });
}

void OTPDisplayLink::start() {
    if (displayLink_)
        displayLink_->start();
}

void OTPDisplayLink::stop() {
    if (displayLink_)
        displayLink_->stop();
}

void OTPDisplayLink::update() {
    block_->invoke();
}

OTPDisplayLink::Callback OTPDisplayLink::callback() const {
    const std::shared_ptr<const Callback> block = block_->current();
    return block ? *block : Callback();
}

void OTPDisplayLink::setCallback(Callback callback) {
    auto shared = std::make_shared<const Callback>(std::move(callback));
    std::shared_ptr<const Callback> previous; // let go after the lock: its captures may be heavy
    std::lock_guard lock(block_->mutex);
    previous = std::exchange(block_->callback, std::move(shared));
}
