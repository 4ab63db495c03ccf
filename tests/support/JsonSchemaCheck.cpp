#include "JsonSchemaCheck.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "TestDir.h"

namespace {

// The validator: the schema must itself be a valid Draft 7 schema, the
// schemas beside it are found by their $id (they refer to each other), and
// every error of the document is listed as "<instance path>: <message>".
const char* const kValidator =
    "import glob, json, os, sys, warnings\n"
    "warnings.simplefilter('ignore', DeprecationWarning)\n"
    "import jsonschema\n"
    "schema = json.load(open(sys.argv[1], encoding='utf-8'))\n"
    "jsonschema.Draft7Validator.check_schema(schema)\n"
    "store = {}\n"
    "for path in glob.glob(os.path.join(os.path.dirname(sys.argv[1]), '*.schema.json')):\n"
    "    other = json.load(open(path, encoding='utf-8'))\n"
    "    store[other['$id']] = other\n"
    "resolver = jsonschema.RefResolver(schema['$id'], schema, store=store)\n"
    "document = json.load(open(sys.argv[2], encoding='utf-8'))\n"
    "validator = jsonschema.Draft7Validator(schema, resolver=resolver)\n"
    "for error in validator.iter_errors(document):\n"
    "    print('$' + ''.join('[%r]' % p for p in error.absolute_path) + ': ' + error.message)\n";

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

std::string JsonSchemaCheck::schemaPath(const std::string& name) {
    return std::string(MOX_SCHEMA_DIR) + "/" + name + ".schema.json";
}

std::string JsonSchemaCheck::problems(const std::string& name, const std::string& document) {
    const TestDir dir("schema-check");
    const std::string script = dir.file("check.py");
    const std::string instance = dir.file("document.json");
    const std::string report = dir.file("report");
    std::ofstream(script, std::ios::binary) << kValidator;
    std::ofstream(instance, std::ios::binary) << document;
    const std::string command = std::string(MOX_PYTHON) + " '" + script + "' '" + schemaPath(name) +
                                "' '" + instance + "' >'" + report + "' 2>&1";
    const int status = std::system(command.c_str());
    const std::string output = readAll(report);
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return "the schema check did not run (is python3-jsonschema installed?): " + output;
    }
    return output;
}
