#!/usr/bin/env bash
# Writes what lighttpd needs to serve the web interface: its configuration, the list of routes by which it refuses what is
# not there, and, unless there is one, a certificate of its own for TLS. Run it again after an update of the programs.
#   scripts/make-web-config.sh --out DIR --cgi FILE --documents FILE [options]
#     --out DIR          where everything goes, the server's log and process id as well
#     --cgi FILE         the program pavo_cgi
#     --documents FILE   the program route_documents
#     --resident SOCKET  the socket of pavo_webd, which answers what it keeps in memory and sends events
#     --static DIR       the web page (DIR/static)
#     --bind ADDRESS     address to listen on (0.0.0.0)
#     --port N           port (443, without TLS 80)
#     --name NAME        host name or address for the certificate, beside the machine's own; may be repeated
#     --user NAME        unprivileged user that the server and its programs run as, when root starts it
#     --env NAME=VALUE   variable of the environment of pavo_cgi; may be repeated
#     --plain            without TLS; on a loopback address only
set -euo pipefail
export LC_ALL=C
umask 022

usage() {
    sed -n '4,16s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
    exit 2
}

out='' cgi='' documents='' resident='' static='' bind=0.0.0.0 port='' user='' plain=''
variables=() names=()
while [ $# -gt 0 ]; do
    case "$1" in
        --plain) plain=yes ;;
        --out | --cgi | --documents | --resident | --static | --bind | --port | --name | --user | --env)
            [ $# -ge 2 ] || usage
            # The configuration quotes with ".
            case "$2" in *['"\']* | *$'\n'*)
                echo "$1: no quotes, backslashes or line feeds" >&2
                exit 2
                ;;
            esac
            case "$1" in
                --env) variables+=("$2") ;;
                --name) names+=("$2") ;;
                *) printf -v "${1#--}" %s "$2" ;;
            esac
            shift
            ;;
        *) usage ;;
    esac
    shift
done
[ -n "$out" ] && [ -n "$cgi" ] && [ -n "$documents" ] || usage
is_loopback='' header_age=31536000
case "$bind" in 127.* | '[::1]' | localhost)
    # A browser applies the header to all ports of the host, so that of a laptop is left alone.
    is_loopback=yes header_age=0
    ;;
esac
if [ -n "$plain" ] && [ -z "$is_loopback" ]; then
    echo "--plain: passwords would cross the network unprotected; bind to 127.0.0.1" >&2
    exit 2
fi
for name in "${names[@]}"; do
    [[ $name =~ ^[A-Za-z0-9.:*-]+$ ]] || { echo "--name $name: neither a host name nor an address" >&2 && exit 2; }
done
group=''
if [ -n "$user" ] && ! group=$(id -gn -- "$user" 2>/dev/null); then
    echo "--user $user: there is no such user" >&2
    exit 2
fi
mkdir -p "$out"
out=$(realpath "$out") cgi=$(realpath "$cgi")
static=${static:-$out/static}
mkdir -p "$static" "$out/uploads"
static=$(realpath "$static")
# All that the server writes to: its log, and request bodies that are too long for its memory.
chmod 0700 "$out/uploads"
touch "$out/lighttpd.log"
chmod 0640 "$out/lighttpd.log"
[ -z "$user" ] || [ "$(id -u)" -ne 0 ] || chown "$user:$group" "$out/uploads" "$out/lighttpd.log"
[ -n "$port" ] || { [ -n "$plain" ] && port=80 || port=443; }
[[ $port =~ ^[0-9]+$ ]] && [ "$port" -ge 1 ] && [ "$port" -le 65535 ] || usage

# Key and certificate come as one file, so that an interruption leaves both or none.
if [ -z "$plain" ] && [ ! -e "$out/server.pem" ]; then
    host=$(uname -n)
    alternatives="DNS:$host,DNS:localhost,IP:127.0.0.1"
    for name in "${names[@]}"; do
        [[ $name =~ ^[0-9.]+$|: ]] && alternatives+=",IP:$name" || alternatives+=",DNS:$name"
    done
    (
        umask 077
        # Of this server alone: whoever trusts it trusts nothing that its key might sign.
        printf '[req]\ndistinguished_name = dn\n[dn]\n' >"$out/openssl.cnf"
        openssl req -x509 -config "$out/openssl.cnf" -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 825 \
            -sha256 -subj "/CN=${host:0:64}" -addext "subjectAltName=$alternatives" \
            -addext "basicConstraints=critical,CA:FALSE" -addext "keyUsage=critical,digitalSignature" \
            -addext "extendedKeyUsage=serverAuth" \
            -keyout "$out/server.key.new" -out "$out/server.crt.new" 2>"$out/openssl.log" || {
            cat "$out/openssl.log" >&2
            exit 1
        }
        cat "$out/server.key.new" "$out/server.crt.new" >"$out/server.pem.new"
        rm -f "$out/server.key.new" "$out/server.crt.new" "$out/server.crt" "$out/openssl.log" "$out/openssl.cnf"
        mv "$out/server.pem.new" "$out/server.pem"
    )
fi
if [ -z "$plain" ] && [ ! -e "$out/server.crt" ]; then
    openssl x509 -in "$out/server.pem" -out "$out/server.crt.new"
    mv "$out/server.crt.new" "$out/server.crt"
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

events=/api/v2/events
paths=''
if [ -n "$resident" ]; then
    paths=$("$documents" resident | grep -vFx "$events" | sed 's/[.+]/\\&/g' | paste -sd '|') || paths=''
    [ -n "$paths" ] || { echo "$documents names no path that is resident" >&2 && exit 1; }
fi
# A resident program that is not there is asked again with the next second; the times are for one that hangs.
backend() { # time in seconds for the next part of an answer, 0: any
    printf '(("socket" => "%s", "connect-timeout" => 5, "write-timeout" => 10, "read-timeout" => %s,' "$resident" "$1"
    printf ' "disable-time" => 0))'
}

{
    cat <<CONF
# Made by make-web-config.sh.
server.modules = ("mod_access", "mod_setenv", "mod_magnet", "mod_alias", "mod_cgi"$(
        [ -z "$resident" ] || printf ', "mod_proxy"'
        [ -n "$plain" ] || printf ', "mod_openssl"'))
server.document-root = "$static"
server.bind = "$bind"
server.port = $port
server.pid-file = "$out/lighttpd.pid"
server.errorlog = "$out/lighttpd.log"
server.breakagelog = "$out/lighttpd.log"
server.upload-dirs = ("$out/uploads")
server.tag = "pavo"
index-file.names = ("index.html")
mimetype.assign = (".html" => "text/html; charset=utf-8", ".js" => "text/javascript; charset=utf-8",
    ".css" => "text/css; charset=utf-8", ".svg" => "image/svg+xml", ".json" => "application/json",
    ".woff2" => "font/woff2", "" => "application/octet-stream")
# Nothing but what stands in the folder of the web page, and nothing hidden.
server.follow-symlink = "disable"
\$HTTP["url"] =~ "/\\." { url.access-deny = ("") }

# Limits: bodies of at most one MiB (4 KiB from who has not logged in), complete before a program runs; clients that dawdle are dropped, and so are programs
# that neither answer nor end.
server.max-request-size = 1024
server.max-request-field-size = 8192
server.max-fds = 8192
server.max-connections = 2400
server.max-keep-alive-idle = 10
server.max-read-idle = 20
server.max-write-idle = 3600
server.stream-request-body = 0
cgi.limits = ("read-timeout" => 600, "write-timeout" => 60)
server.http-parseopts = ("header-strict" => "enable", "host-strict" => "enable", "host-normalize" => "enable",
    "url-normalize" => "enable", "url-normalize-unreserved" => "enable", "url-ctrls-reject" => "enable",
    "url-path-2f-decode" => "disable", "url-path-2f-reject" => "enable",
    "url-path-dotseg-remove" => "disable", "url-path-dotseg-reject" => "enable")

setenv.set-response-header = ("X-Content-Type-Options" => "nosniff", "X-Frame-Options" => "DENY",
    "Referrer-Policy" => "no-referrer", "Cross-Origin-Resource-Policy" => "same-origin",
    "Content-Security-Policy" => "default-src 'self'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'"$(
        [ -n "$plain" ] || printf ',\n    "Strict-Transport-Security" => "max-age=%s"' "$header_age"))
CONF
    if [ -n "$user" ]; then
        printf 'server.username = "%s"\nserver.groupname = "%s"\n' "$user" "$group"
    fi
    if [ -z "$plain" ]; then
        printf 'ssl.engine = "enable"\nssl.pemfile = "%s"\n' "$out/server.pem"
        printf 'ssl.openssl.ssl-conf-cmd = ("MinProtocol" => "TLSv1.2", "CipherString" => "ECDHE+AESGCM:ECDHE+CHACHA20")\n'
    fi
    echo
    echo '$HTTP["url"] =~ "^/api/v2(/|$)" {'
    printf '    magnet.attract-raw-url-to = ("%s")\n' "$out/routes.lua"
    printf '    alias.url = ("/api/v2/" => "%s/")\n' "$cgi"
    printf '    cgi.assign = ("%s" => "")\n' "$(basename "$cgi")"
    echo '    cgi.execute-x-only = "enable"'
    echo '    server.range-requests = "disable"'
    echo '    $REQUEST_HEADER["Session"] == "" { server.max-request-size = 4 }'
    echo '    setenv.add-response-header = ("Cache-Control" => "no-store")'
    if [ ${#variables[@]} -gt 0 ]; then
        echo '    setenv.set-environment = ('
        for variable in "${variables[@]}"; do
            printf '        "%s" => "%s",\n' "${variable%%=*}" "${variable#*=}"
        done
        echo '    )'
    fi
    if [ -n "$resident" ]; then
        echo '    $HTTP["request-method"] == "GET" {'
        printf '        $HTTP["url"] =~ "^(%s)$" { proxy.server = ("" => %s) }\n' "$paths" "$(backend 60)"
        echo '        # A stream of events is passed on as it comes, and may be quiet for long. (With HTTP/2, the time of the'
        echo '        # whole server counts, so that one is long, too.)'
        printf '        $HTTP["url"] == "%s" {\n' "$events"
        printf '            proxy.server = ("" => %s)\n' "$(backend 0)"
        echo '            server.stream-response-body = 2'
        echo '            server.max-write-idle = 65535'
        echo '            server.max-read-idle = 65535'
        echo '        }'
        echo '    }'
    fi
    echo '}'
} >"$out/lighttpd.conf.new"
if lighttpd=$(PATH=$PATH:/usr/sbin command -v lighttpd) && ! "$lighttpd" -tt -f "$out/lighttpd.conf.new" >"$out/test.log" 2>&1; then
    echo "lighttpd refuses the configuration $out/lighttpd.conf.new:" >&2
    cat "$out/test.log" >&2
    exit 1
fi
rm -f "$out/test.log"
mv "$out/lighttpd.conf.new" "$out/lighttpd.conf"
