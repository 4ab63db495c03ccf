// Checks a JSON document against one of the published JSON Schemas of the
// tools' output (docs/schemas/), with Debian's python3-jsonschema: the same
// validator that users of the schemas run.
//
//   EXPECT_EQ(JsonSchemaCheck::problems("mox-lookup", result.out), "");
#ifndef MOX_TESTS_JSONSCHEMACHECK_H
#define MOX_TESTS_JSONSCHEMACHECK_H

#include <string>

class JsonSchemaCheck {
public:
    // The path of docs/schemas/<name>.schema.json.
    static std::string schemaPath(const std::string& name);

    // "" when `document` is valid against the schema `name`; otherwise one
    // line per problem (the instance path and the validator's message), or
    // why the check could not run.
    static std::string problems(const std::string& name, const std::string& document);
};

#endif  // MOX_TESTS_JSONSCHEMACHECK_H
