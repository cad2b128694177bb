#!/usr/bin/env bash
# Usage: make-certs.sh DIR
# Makes throw-away test certificates in DIR: two CAs (ca, otherca), device
# certificates for localhost, 127.0.0.1 and ::1 signed by ca (device: good for
# two days; expired: ran out yesterday) and a client certificate. Each NAME
# has NAME.pem and NAME.key; rsa.key is an RSA key of no certificate.
set -euo pipefail
cd "$1"

key() { openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$1.key" 2>/dev/null; }
ca() {
    key "$1"
    openssl req -x509 -new -key "$1.key" -out "$1.pem" -subj "/CN=$1" -days 2 2>/dev/null
}
issue() {  # NAME CA DAYS SUBJECT-ALT-NAMES
    key "$1"
    openssl req -new -key "$1.key" -subj "/CN=$1" -out "$1.csr" 2>/dev/null
    echo "subjectAltName=$4" >"$1.ext"
    openssl x509 -req -in "$1.csr" -CA "$2.pem" -CAkey "$2.key" -CAcreateserial -days "$3" \
        -extfile "$1.ext" -out "$1.pem" 2>/dev/null
}

ca ca
ca otherca
names="DNS:localhost,IP:127.0.0.1,IP:::1"
issue device ca 2 "$names"
issue expired ca -1 "$names"
issue client ca 2 "DNS:client"
openssl genpkey -algorithm RSA -out rsa.key 2>/dev/null
