#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QPainterPath>
#include <QWidget>

// A rounded, lightly tinted box with a thin outline, to sit behind a borderless text field on a
// translucent panel. It paints nothing else, so whatever lies behind it shows through its tint.
//
// The fill is a translucent grey (light from system version 10.12 on, which is what Linux
// reports; see platform/runtime/SystemVersion.h); the outline is the palette's window-text
// colour at a quarter strength, so it follows light and dark themes. Main thread only.
//
//   auto* backdrop = new VibrantTextFieldBackgroundView(panel);
//   backdrop->setGeometry(field->geometry());
//   backdrop->lower();
class MCC_EXPORT VibrantTextFieldBackgroundView : public QWidget {
    Q_OBJECT
public:
    explicit VibrantTextFieldBackgroundView(QWidget* parent = nullptr);
    ~VibrantTextFieldBackgroundView() override;
    Q_DISABLE_COPY(VibrantTextFieldBackgroundView)

    // Always true: the view is meant to be blended with what lies behind it.
    bool allowsVibrancy() const { return true; }

    // The fill for the running system version.
    static QColor fillColor();
    // The outline: the palette's window-text colour at the strength of a tertiary label.
    QColor strokeColor() const;
    // The outline's path: the bounds inset by half a point (so a one-point line covers whole
    // pixels inside them), corners of radius 2.5.
    QPainterPath backgroundPath() const;

protected:
    // Draws the whole box, whatever part needs repainting.
    void paintEvent(QPaintEvent* event) override;
};
