#!/usr/bin/env bash
# Writes what lighttpd needs to serve the web interface: its configuration, the list of routes by which it refuses what is
# not there, and, unless there is one, a certificate of its own for TLS.
#   scripts/make-web-config.sh --out DIR --cgi FILE --documents FILE [options]
#     --out DIR          where everything goes, the server's log and process id as well
#     --cgi FILE         the program pavo_cgi
#     --documents FILE   the program route_documents
#     --static DIR       the web page (DIR/static)
#     --bind ADDRESS     address to listen on (0.0.0.0)
#     --port N           port (443, without TLS 80)
#     --user NAME        unprivileged user and group, when it is started by root
#     --env NAME=VALUE   variable of the environment of pavo_cgi; may be repeated
#     --plain            without TLS
set -euo pipefail

usage() {
    sed -n '4,14s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
    exit 2
}

out='' cgi='' documents='' static='' bind=0.0.0.0 port='' user='' plain=''
variables=()
while [ $# -gt 0 ]; do
    case "$1" in
        --plain) plain=yes ;;
        --out | --cgi | --documents | --static | --bind | --port | --user | --env)
            [ $# -ge 2 ] || usage
            # The configuration quotes with ".
            case "$2" in *['"\']* | *$'\n'*)
                echo "$1: no quotes, backslashes or line feeds" >&2
                exit 2
                ;;
            esac
            case "$1" in --env) variables+=("$2") ;; *) printf -v "${1#--}" %s "$2" ;; esac
            shift
            ;;
        *) usage ;;
    esac
    shift
done
[ -n "$out" ] && [ -n "$cgi" ] && [ -n "$documents" ] || usage
mkdir -p "$out"
out=$(realpath "$out") cgi=$(realpath "$cgi")
static=${static:-$out/static}
mkdir -p "$static"
[ -n "$port" ] || { [ -n "$plain" ] && port=80 || port=443; }
[[ $port =~ ^[0-9]+$ ]] || usage

if [ -z "$plain" ] && [ ! -e "$out/server.pem" ]; then
    (
        umask 077
        openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 3650 -sha256 \
            -subj "/CN=$(hostname)" -addext "subjectAltName=DNS:$(hostname),DNS:localhost,IP:127.0.0.1" \
            -keyout "$out/server.key" -out "$out/server.crt" 2>/dev/null
        cat "$out/server.key" "$out/server.crt" >"$out/server.pem.new"
        rm "$out/server.key"
        mv "$out/server.pem.new" "$out/server.pem"
    )
fi

{
    echo '-- Answers for what is no route before a program is started.'
    echo 'local routes = (function()'
    "$documents" routes
    cat <<'LUA'
end)()
local function refuse(status, code, message)
    lighty.r.resp_header["Content-Type"] = "application/json"
    lighty.r.resp_body:set(string.format(
        '{"resp":{"respCode":%d,"respMsg":"%s","status":"fail"}}\n', code, message))
    return status
end
local methods = routes[lighty.r.req_attr["uri.path"]]
if not methods then
    return refuse(404, 10023, "Request api not found")
end
if not string.find(", " .. methods .. ",", ", " .. lighty.r.req_attr["request.method"] .. ",", 1, true) then
    lighty.r.resp_header["Allow"] = methods
    return refuse(405, 10024, "HTTP method is not suported for this request")
end
if string.find(lighty.r.req_attr["uri.query"] or "", "/", 1, true) then
    return refuse(400, 10021, "Illegal request: a slash within the query is written %2F")
end
LUA
} >"$out/routes.lua.new"
mv "$out/routes.lua.new" "$out/routes.lua"

{
    cat <<CONF
# Made by make-web-config.sh.
server.modules = ("mod_setenv", "mod_magnet", "mod_alias", "mod_cgi"$([ -n "$plain" ] || printf ', "mod_openssl"'))
server.document-root = "$static"
server.bind = "$bind"
server.port = $port
server.pid-file = "$out/lighttpd.pid"
server.errorlog = "$out/lighttpd.log"
server.breakagelog = "$out/lighttpd.log"
server.upload-dirs = ("$out")
server.tag = "pavo"
index-file.names = ("index.html")
mimetype.assign = (".html" => "text/html; charset=utf-8", ".js" => "text/javascript; charset=utf-8",
    ".css" => "text/css; charset=utf-8", ".svg" => "image/svg+xml", ".json" => "application/json",
    ".woff2" => "font/woff2", "" => "application/octet-stream")

# Limits: bodies of at most one MiB, complete before a program runs; clients that dawdle are dropped.
server.max-request-size = 1024
server.max-request-field-size = 8192
server.max-connections = 512
server.max-keep-alive-idle = 10
server.max-read-idle = 20
server.max-write-idle = 300
server.stream-request-body = 0
server.http-parseopts = ("header-strict" => "enable", "host-strict" => "enable", "host-normalize" => "enable",
    "url-normalize" => "enable", "url-normalize-unreserved" => "enable", "url-ctrls-reject" => "enable",
    "url-path-2f-decode" => "disable", "url-path-2f-reject" => "enable",
    "url-path-dotseg-remove" => "disable", "url-path-dotseg-reject" => "enable")

setenv.set-response-header = ("X-Content-Type-Options" => "nosniff", "X-Frame-Options" => "DENY",
    "Referrer-Policy" => "no-referrer", "Content-Security-Policy" => "default-src 'self'; frame-ancestors 'none'"$(
        [ -n "$plain" ] || printf ',\n    "Strict-Transport-Security" => "max-age=31536000"'))
CONF
    if [ -n "$user" ]; then
        printf 'server.username = "%s"\nserver.groupname = "%s"\n' "$user" "$user"
    fi
    if [ -z "$plain" ]; then
        printf 'ssl.engine = "enable"\nssl.pemfile = "%s"\n' "$out/server.pem"
        printf 'ssl.openssl.ssl-conf-cmd = ("MinProtocol" => "TLSv1.2")\n'
    fi
    echo
    echo '$HTTP["url"] =~ "^/api/v2(/|$)" {'
    printf '    magnet.attract-raw-url-to = ("%s")\n' "$out/routes.lua"
    printf '    alias.url = ("/api/v2/" => "%s/")\n' "$cgi"
    printf '    cgi.assign = ("%s" => "")\n' "$(basename "$cgi")"
    echo '    cgi.execute-x-only = "enable"'
    echo '    setenv.add-response-header = ("Cache-Control" => "no-store")'
    if [ ${#variables[@]} -gt 0 ]; then
        echo '    setenv.set-environment = ('
        for variable in "${variables[@]}"; do
            printf '        "%s" => "%s",\n' "${variable%%=*}" "${variable#*=}"
        done
        echo '    )'
    fi
    echo '}'
} >"$out/lighttpd.conf.new"
mv "$out/lighttpd.conf.new" "$out/lighttpd.conf"
