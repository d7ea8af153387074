#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

namespace nuvrel::AesGcm {

constexpr qsizetype keySize = 32;
constexpr qsizetype nonceSize = 12;
constexpr qsizetype tagSize = 16;
/// What a sealed box adds to its plaintext: the nonce before, the tag after.
constexpr qsizetype overhead = nonceSize + tagSize;

/// `plaintext` sealed with AES-256-GCM under `key` (32 bytes) and a fresh nonce from the system's
/// random generator, with `aad` authenticated alongside; the box in its combined form: nonce,
/// ciphertext, tag. Empty on failure (a key of the wrong size).
QByteArray seal(QByteArrayView key, QByteArrayView plaintext, QByteArrayView aad = {});

/// The plaintext of a combined box, or nothing when the box is too short, the key is not 32 bytes or
/// the tag does not match (a wrong key, other additional data, any changed bit).
std::optional<QByteArray> open(QByteArrayView key, QByteArrayView box, QByteArrayView aad = {});

/// 32 bytes from the system's random generator: a new key.
QByteArray randomKey();

} // namespace nuvrel::AesGcm
