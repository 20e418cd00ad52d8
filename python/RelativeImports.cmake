# Makes the imports between generated message modules relative, so that they
# live inside the package instead of at the top level: "import krin_pb2 as x"
# becomes "from . import krin_pb2 as x". Run with -DFILE=<module.py>.
file(READ "${FILE}" text)
string(REGEX REPLACE "\nimport ([A-Za-z0-9_]+_pb2) as" "\nfrom . import \\1 as" text "${text}")
file(WRITE "${FILE}" "${text}")
