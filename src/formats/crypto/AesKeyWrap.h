#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

namespace nuvrel::AesKeyWrap {

/// The AES key unwrap of RFC 3394; nothing for a bad length, a key encryption key that is not 16, 24
/// or 32 bytes, or a failed integrity check.
std::optional<QByteArray> unwrap(QByteArrayView kek, QByteArrayView wrapped);

/// One AES block decrypted in ECB mode, the primitive of the unwrap; empty for a key that is not 16,
/// 24 or 32 bytes or a block that is not 16 bytes.
QByteArray ecbDecryptBlock(QByteArrayView key, QByteArrayView block);

} // namespace nuvrel::AesKeyWrap
