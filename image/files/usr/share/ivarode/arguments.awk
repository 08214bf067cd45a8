# Reads a flat JSON object from standard input and prints its texts as lines NAME=TEXT, those of an array as one line
# each. Other values are passed over. Fails for what is not such an object, for a text with control characters, which
# no line can hold, and for more than 8 KiB.

function fail() {
    failed = 1
    exit 1
}

function skip() {
    while (substr(all, at, 1) ~ /[ \t\r\n]/) {
        at++
    }
}

function take(char) {
    skip()
    if (substr(all, at, 1) != char) {
        return 0
    }
    at++
    return 1
}

# \u0020 to \u007e; json-c writes others in UTF-8.
function escaped(    digits, high, low) {
    digits = tolower(substr(all, at, 4))
    at += 4
    if (digits !~ /^00[2-7][0-9a-f]$/ || digits == "007f") {
        fail()
    }
    high = substr(digits, 3, 1)
    low = index("0123456789abcdef", substr(digits, 4, 1)) - 1
    return sprintf("%c", high * 16 + low)
}

function text(    char, out) {
    if (!take("\"")) {
        fail()
    }
    while ((char = substr(all, at++, 1)) != "\"") {
        if (char == "" || char < " " || char == "\177") {
            fail()
        }
        if (char == "\\") {
            char = substr(all, at++, 1)
            if (char == "u") {
                char = escaped()
            } else if (index("\"\\/", char) == 0 || char == "") {
                fail()
            }
        }
        out = out char
    }
    return out
}

# A value; texts are printed.
function value(name) {
    skip()
    if (substr(all, at, 1) == "\"") {
        print name "=" text()
    } else if (take("[")) {
        if (take("]")) {
            return
        }
        do {
            value(name)
        } while (take(","))
        if (!take("]")) {
            fail()
        }
    } else if (match(substr(all, at), /^(-?[0-9][0-9.eE+-]*|true|false|null)/)) {
        at += RLENGTH
    } else {
        fail()
    }
}

{
    all = all $0 "\n"
    if (length(all) > 8192) {
        fail()
    }
}

END {
    if (failed) {
        exit 1
    }
    at = 1
    if (!take("{")) {
        fail()
    }
    if (!take("}")) {
        do {
            name = text()
            if (name !~ /^[a-z_]+$/ || !take(":")) {
                fail()
            }
            value(name)
        } while (take(","))
        if (!take("}")) {
            fail()
        }
    }
    skip()
    if (at <= length(all)) {
        fail()
    }
}
