#include "marlockCompanionCommon/RNCryptor/Encryptor.h"

#include "marlockCompanionCommon/RNCryptor/Fatal_p.h"

namespace RNCryptor {

using namespace internal;

namespace {

const QString& nonEmpty(const QString& password) {
    cryptorPrecondition(!password.isEmpty(), "password must not be empty");
    return password;
}

} // namespace

Encryptor::Encryptor(const QString& password)
    : encryptor_(nonEmpty(password)) {}

Encryptor::~Encryptor() = default;

QByteArray Encryptor::encrypt(const QByteArray& data) {
    return encryptor_.encrypt(data);
}

QByteArray Encryptor::update(const QByteArray& data) {
    return encryptor_.update(data);
}

QByteArray Encryptor::finalData() {
    return encryptor_.finalData();
}

} // namespace RNCryptor
