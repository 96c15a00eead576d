#include "marlockCompanionCommon/timing/OTPDisplayLink.h"

OTPDisplayLink::OTPDisplayLink(QObject* parent)
    : QObject(parent) {
    commonInit();
}

// Destroying the display link ends its thread before the callback goes.
OTPDisplayLink::~OTPDisplayLink() {
    displayLink_.reset();
}

void OTPDisplayLink::commonInit() {
    displayLink_ = DisplayLink::createWithActiveDisplays();
    if (displayLink_)
        displayLink_->setOutputCallback([this](const DisplayLink::FrameTimes&) { update(); });
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
    if (callback_)
        callback_();
}
