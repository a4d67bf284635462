#!/bin/sh
# Makes a throw-away certificate authority and a server certificate for 127.0.0.1/localhost
# in the folder given (created when missing): ca.pem, ca.key, server.pem, server.key.
# Used by the test server and the demo; clients trust ca.pem through VELMORA_CA_FILE.
set -eu
dir=${1:?usage: make-ca.sh FOLDER}
mkdir -p "$dir"
cd "$dir"
ext=$(mktemp)
trap 'rm -f "$ext" server.csr' EXIT

openssl req -x509 -new -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes \
    -keyout ca.key -out ca.pem -days 3650 -subj "/CN=Velmora Test Authority" \
    -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign,cRLSign" \
    2>/dev/null
openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes \
    -keyout server.key -out server.csr -subj "/CN=127.0.0.1" 2>/dev/null
printf '%s\n' "basicConstraints=CA:FALSE" "keyUsage=critical,digitalSignature,keyEncipherment" \
    "extendedKeyUsage=serverAuth" "subjectAltName=IP:127.0.0.1,DNS:localhost" > "$ext"
openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out server.pem \
    -days 3650 -extfile "$ext" 2>/dev/null
rm -f ca.srl
