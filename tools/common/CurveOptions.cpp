#include "tools/common/CurveOptions.h"

#include <stdexcept>
#include <zmq.h>

#include "tools/common/CommandLine.h"

namespace lumo::tools {

namespace {

struct CurveOption {
    const char* option;
    const char* property;
};

const CurveOption curveOptions[] = {
    {"--curve-server-secret", "krin.runtime.curve.serverSecretKey"},
    {"--curve-server-public", "krin.runtime.curve.serverPublicKey"},
    {"--curve-public", "krin.runtime.curve.publicKey"},
    {"--curve-secret", "krin.runtime.curve.secretKey"},
    {"--curve-authorized", "krin.runtime.curve.authorizedKeys"},
};

}  // namespace

bool takeCurveOption(int argc, char** argv, int& index, orlo::dabo::Dabo::Properties& properties) {
    const std::string argument = argv[index];
    for (const CurveOption& curve : curveOptions) {
        if (argument == curve.option) {
            properties[curve.property] = optionValue(argc, argv, index, argument);
            return true;
        }
    }
    return false;
}

void printCurveOptions(std::ostream& out) {
    out << "CURVE security (keys as Z85 text, 40 characters, e.g. from curve_keygen):\n"
           "  --curve-server-secret KEY  publishing: the endpoints' secret key, so that only\n"
           "                             subscribers that know its public key get samples\n"
           "  --curve-authorized KEYS    publishing: admit only subscribers with these public\n"
           "                             keys (separated by commas or white space)\n"
           "  --curve-server-public KEY  subscribing: the public key of the publishers' endpoints\n"
           "  --curve-public KEY         subscribing: this subscriber's own key pair (with\n"
           "  --curve-secret KEY         --curve-secret); a fresh pair when left out\n"
           "  A secret key on the command line is visible to other users of the machine;\n"
           "  -p reads the same properties (krin.runtime.curve.*).\n";
}

CurveKeyPair newCurveKeyPair() {
    char publicKey[41];
    char secretKey[41];
    if (zmq_curve_keypair(publicKey, secretKey) != 0) {
        throw std::runtime_error("no CURVE key pair could be made: this ZeroMQ library has no CURVE security");
    }
    return {publicKey, secretKey};
}

}  // namespace lumo::tools
