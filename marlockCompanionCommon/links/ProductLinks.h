#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>
#include <QUrl>

#include <vector>

// Where people find the maker of Marlock: the product's web page, its support page and address,
// the privacy policy, and the pages of the phone app in the two app stores. Fixed values, the
// same in every program that shows them (an About dialog, `marlock about`).
//
// The store links point at the maker's own domain, which forwards to the store: a store listing
// can move without the programs that name it changing.
//
//   for (const ProductLinks::Link& link : ProductLinks::all())
//       addRow(link.title, link.url);
//   QDesktopServices::openUrl(ProductLinks::supportPage());
namespace ProductLinks {

// A link as an About dialog lists it: a short title ("Support") and where it goes.
struct MCC_EXPORT Link {
    QString title;
    QUrl url;
};

// https://marlock.org/, the product's home page.
MCC_EXPORT QUrl webPage();
// https://marlock.org/support, questions and answers and how to reach a person.
MCC_EXPORT QUrl supportPage();
// support@marlock.org.
MCC_EXPORT QString supportAddress();
// The support address as a mailto: link, for a mail program.
MCC_EXPORT QUrl supportMail();
// https://marlock.org/privacy.
MCC_EXPORT QUrl privacyPolicy();
// https://marlock.org/store/app-store, the phone app for iPhone and iPad.
MCC_EXPORT QUrl appStorePage();
// https://marlock.org/store/google-play, the phone app for Android.
MCC_EXPORT QUrl googlePlayPage();

// Every link above, in the order an About dialog shows them (the mail link, not the bare address).
MCC_EXPORT std::vector<Link> all();

} // namespace ProductLinks
