#include "tools/common/CurveKeyPair.h"

#include <stdexcept>
#include <zmq.h>

namespace lumo::tools {

CurveKeyPair newCurveKeyPair() {
    char publicKey[41];
    char secretKey[41];
    if (zmq_curve_keypair(publicKey, secretKey) != 0) {
        throw std::runtime_error("no CURVE key pair could be made: this ZeroMQ library has no CURVE security");
    }
    return {publicKey, secretKey};
}

}  // namespace lumo::tools
