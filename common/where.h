// The place in the source that a log line names: a function and a line.
//
// A helper that reports a failure on behalf of its caller takes a last parameter `Where where =
// std::source_location::current()` and logs with it, so that the line names the operation that failed and not
// the helper. Inside a lambda it is the enclosing function that is named.
#ifndef PAVO_COMMON_WHERE_H
#define PAVO_COMMON_WHERE_H

#include <cstddef>
#include <cstdint>
#include <source_location>
#include <string_view>

namespace pavo {

class Where {
  public:
    // Implicit, for `Where where = std::source_location::current()`.
    consteval Where(std::source_location at) : line_(static_cast<int>(at.line())) {
        const std::string_view name = bareName(at.function_name());
        if (name.empty() || name == "operator")
            throw "a log line must name a function: pass a Where to this one";
        for (std::size_t i = 0; i < name.size() && i + 1 < sizeof function_; ++i)
            function_[i] = name[i];
    }

    // Another name than the function's own: that of the operation that a row of a table belongs to.
    constexpr Where(std::string_view name, int line) : line_(line) {
        for (std::size_t i = 0; i < name.size() && i + 1 < sizeof function_; ++i)
            function_[i] = name[i];
    }

    const char *function() const { return function_; }
    int line() const { return line_; }

    // The name alone of a function as the compiler spells it out: without its type, scopes, parameters and
    // template arguments, and of the enclosing function when it is a lambda's call operator. Empty for a
    // lambda that no function encloses.
    static constexpr std::string_view bareName(std::string_view pretty) {
        const std::size_t whole = pretty.size();
        for (const std::string_view lambda : {"::<lambda", "::(anonymous class)", "::(lambda"})
            pretty = pretty.substr(0, pretty.find(lambda));
        const std::size_t parameters = parametersAt(pretty);
        if (pretty.size() < whole && parameters == pretty.size())
            return "";
        const std::string_view scoped = pretty.substr(0, parameters);
        std::size_t begin = scoped.size();
        while (begin > 0 && isNameCharacter(scoped[begin - 1]))
            --begin;
        // An operator's name is what stands behind the keyword; the keyword says enough.
        const std::size_t op = scoped.rfind("operator");
        return op != std::string_view::npos ? scoped.substr(op) : scoped.substr(begin);
    }

  private:
    static constexpr bool isNameCharacter(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               c == '~';
    }

    // Where the parameter list begins: the first parenthesis outside of template arguments that opens no
    // "(anonymous namespace)".
    static constexpr std::size_t parametersAt(std::string_view pretty) {
        int depth = 0;
        for (std::size_t i = 0; i < pretty.size(); ++i)
            if (pretty[i] == '<')
                ++depth;
            else if (pretty[i] == '>')
                --depth;
            else if (pretty[i] == '(' && depth == 0 && !pretty.substr(i).starts_with("(anonymous"))
                return i;
        return pretty.size();
    }

    char function_[60]{};
    int line_;
};

}  // namespace pavo

#endif
