# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Sourced by the demos. `work` is a temporary folder and `log` the output of the step; at the end, the
# folder is removed and the processes in `started` are stopped.

work=$(mktemp -d)
log=$work/step.log
started=()
step=0

clean_up() {
  # An empty list is an error to kill, and so is a process that has ended.
  kill "${started[@]}" 2>/dev/null || true
  wait "${started[@]}" 2>/dev/null || true
  rm -rf "$work"
}
trap clean_up EXIT

tell() {
  step=$((step + 1))
  printf '%d. %s\n' "$step" "$1"
}

fail() {
  printf 'step %d failed: %s\n' "$step" "$1" >&2
  local file
  for file in "$work"/*.log; do
    if [[ -s $file ]]; then
      printf -- '--- last output: %s\n' "$(basename "$file" .log)" >&2
      tail -n 20 "$file" >&2
    fi
  done
  exit 1
}

# Runs a command and checks its exit status.
expect() {
  local want=$1 status=0
  shift
  "$@" >"$log" 2>&1 || status=$?
  ((status == want)) || fail "exit status $status instead of $want: $*"
}

# Checks that the output of the step contains a text.
shows() {
  grep -qF -- "$1" "$log" || fail "the output does not hold \"$1\""
}

free_port() {
  local port
  for port in {18480..18520}; do
    (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null || break
  done
  echo "$port"
}

# write_nginx_configuration PORT ROOT: serves the files below ROOT. More directives of the server come from
# standard input.
write_nginx_configuration() {
  local user=
  ((EUID == 0)) && user="user nobody nogroup;"
  cat >"$work/nginx.conf" <<NGINX
$user
worker_processes 1;
daemon off;
pid $work/nginx.pid;
error_log $work/nginx.log;
events { worker_connections 1024; }
http {
  access_log off;
  client_body_temp_path $work/nginx;
  proxy_temp_path $work/nginx;
  fastcgi_temp_path $work/nginx;
  uwsgi_temp_path $work/nginx;
  scgi_temp_path $work/nginx;
  server {
    listen 127.0.0.1:$1;
    root $2;
    $(cat)
  }
}
NGINX
}

start_nginx() {
  nginx -e "$work/nginx.log" -c "$work/nginx.conf" &
  nginx=$!
  started+=("$nginx")
}
