#include <google/protobuf/compiler/plugin.h>

#include "codegen/LumoGenerator.h"

int main(int argc, char* argv[]) {
    lumo::codegen::LumoGenerator generator;
    return google::protobuf::compiler::PluginMain(argc, argv, &generator);
}
