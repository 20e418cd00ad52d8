#pragma once

#include <ostream>
#include <string>

#include "dabo/Dabo.h"

namespace lumo::tools {

/// The command-line options that switch the runtime's CURVE security on,
/// each the name of one runtime property, so that nobody has to spell the
/// property names:
///
///   --curve-server-secret KEY  krin.runtime.curve.serverSecretKey (publishing)
///   --curve-server-public KEY  krin.runtime.curve.serverPublicKey (subscribing)
///   --curve-public KEY         krin.runtime.curve.publicKey       (subscribing)
///   --curve-secret KEY         krin.runtime.curve.secretKey       (subscribing)
///   --curve-authorized KEYS    krin.runtime.curve.authorizedKeys  (publishing)
///
/// If `argv[index]` is one of them, takes its value into `properties`,
/// advances `index` and returns true; false for any other argument. The
/// runtime checks the keys when it is created.
bool takeCurveOption(int argc, char** argv, int& index, orlo::dabo::Dabo::Properties& properties);

/// The lines of --help that explain the options above.
void printCurveOptions(std::ostream& out);

/// A CURVE key pair as Z85 text, 40 characters each.
struct CurveKeyPair {
    std::string publicKey;
    std::string secretKey;
};

/// A fresh key pair; throws std::runtime_error if ZeroMQ cannot make one.
CurveKeyPair newCurveKeyPair();

}  // namespace lumo::tools
