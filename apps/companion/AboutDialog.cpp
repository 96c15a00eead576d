#include "companion/AboutDialog.h"

#include "gui/AppIcon.h"

#include "marlockCompanionCommon/Version.h"
#include "marlockCompanionCommon/links/ProductLinks.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>

namespace companion {

AboutDialog::AboutDialog(QWidget* parent)
    : QDialog(parent) {
    setWindowTitle(tr("About Marlock Companion"));
    auto* form = new QFormLayout(this);
    auto* icon = new QLabel(this);
    icon->setPixmap(appIcon().pixmap(64, 64));
    form->addRow(icon, new QLabel(tr("<b>Marlock Companion</b><br>Version %1<br>One-time codes of your "
                                     "accounts, on your desktop.")
                                      .arg(marlockCompanionCommonVersion()),
                                  this));
    for (const ProductLinks::Link& link : ProductLinks::all()) {
        const QString shown =
            link.url.scheme() == QLatin1String("mailto") ? link.url.path() : link.url.toString();
        auto* label = new QLabel(QStringLiteral("<a href=\"%1\">%2</a>")
                                     .arg(link.url.toString(QUrl::FullyEncoded), shown.toHtmlEscaped()),
                                 this);
        label->setOpenExternalLinks(true);
        label->setTextInteractionFlags(Qt::TextBrowserInteraction);
        form->addRow(link.title + QLatin1Char(':'), label);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

} // namespace companion
