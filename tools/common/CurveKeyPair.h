#pragma once

#include <string>

namespace lumo::tools {

/// A CURVE key pair as Z85 text, 40 characters each.
struct CurveKeyPair {
    std::string publicKey;
    std::string secretKey;
};

/// A fresh key pair; throws std::runtime_error if ZeroMQ cannot make one.
CurveKeyPair newCurveKeyPair();

}  // namespace lumo::tools
