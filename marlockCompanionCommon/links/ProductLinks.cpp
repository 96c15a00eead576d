#include "marlockCompanionCommon/links/ProductLinks.h"

namespace ProductLinks {

namespace {

// Every page lives under the one domain, so a page can never point at a look-alike host.
QUrl page(const QString& path) {
    return QUrl(QStringLiteral("https://marlock.org") + path);
}

} // namespace

QUrl webPage() {
    return page(QStringLiteral("/"));
}

QUrl supportPage() {
    return page(QStringLiteral("/support"));
}

QString supportAddress() {
    return QStringLiteral("support@marlock.org");
}

QUrl supportMail() {
    return QUrl(QStringLiteral("mailto:") + supportAddress());
}

QUrl privacyPolicy() {
    return page(QStringLiteral("/privacy"));
}

QUrl appStorePage() {
    return page(QStringLiteral("/store/app-store"));
}

QUrl googlePlayPage() {
    return page(QStringLiteral("/store/google-play"));
}

std::vector<Link> all() {
    return {
        {QStringLiteral("Web site"), webPage()},
        {QStringLiteral("Support"), supportPage()},
        {QStringLiteral("Write to support"), supportMail()},
        {QStringLiteral("Privacy policy"), privacyPolicy()},
        {QStringLiteral("Marlock for iPhone and iPad"), appStorePage()},
        {QStringLiteral("Marlock for Android"), googlePlayPage()},
    };
}

} // namespace ProductLinks
