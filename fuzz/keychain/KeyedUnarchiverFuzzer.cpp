// Feeds arbitrary bytes to the keyed unarchiver with the token allow-list, as the sync flow reads
// decrypted cloud data. Every input must decode or fail with an unarchive error; what decodes
// must archive again and decode to an equally long array.
#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverTypes.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QStringList tokenClasses = {"NSArray", "OTPToken", "NSNumber", "NSValue"};
    platform::Error error;
    const std::optional<QVariant> root = jr_unarchiveData(bytes, true, tokenClasses, &error);
    if (!root) {
        if (error.domain != platform::KeyedArchive::invalidUnarchiveOperationException || error.code != -1)
            abort();
        return 0;
    }
    const std::optional<QByteArray> again = jr_archivedDataWithRootObject(*root, true, &error);
    if (!again) {
        fprintf(stderr, "decoded but cannot archive again: %s\n",
                qPrintable(error.userInfo.value(jr_localizedFailureReasonErrorKey).toString()));
        abort();
    }
    const std::optional<QVariant> reread = jr_unarchiveData(*again, true, tokenClasses);
    if (!reread || reread->toList().size() != root->toList().size())
        abort();
    return 0;
}
