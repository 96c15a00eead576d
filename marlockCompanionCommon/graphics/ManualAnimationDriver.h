#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QAnimationDriver>

#include <chrono>
#include <memory>

class QAbstractAnimation;

namespace graphics {

// An animation clock that moves only when told, for tests, screenshots and measurements: while
// it exists, every Qt animation of this thread (and so every layer animation) advances exactly
// by the time passed to advanceTime(), never by the wall clock.
//
// An animation added between two steps starts at the time of the last step.
//
//   graphics::ManualAnimationDriver clock;
//   view.setText("287 082", true);
//   clock.advanceTime(std::chrono::milliseconds(500));   // half-way through a 1 s roll
//   view.render(&image);
class MCC_EXPORT ManualAnimationDriver : public QAnimationDriver {
    Q_OBJECT
public:
    // Installs itself as the animation driver of the calling thread.
    explicit ManualAnimationDriver(QObject* parent = nullptr);
    // Gives the thread its default driver back.
    ~ManualAnimationDriver() override;
    Q_DISABLE_COPY(ManualAnimationDriver)

    // Starts animations added since the last step, then moves every running animation forward
    // by `step` (finishing those that reach their end, which may run completion blocks). It
    // first delivers the thread's pending queued calls, which is how Qt starts new animations.
    void advanceTime(std::chrono::milliseconds step);

    // Milliseconds since Qt last started the driver.
    qint64 elapsed() const override { return elapsed_; }

protected:
    void start() override;

private:
    std::unique_ptr<QAbstractAnimation> keepAlive_;
    qint64 elapsed_ = 0;
};

} // namespace graphics
