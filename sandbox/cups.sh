#!/usr/bin/env bash
# A private CUPS scheduler on loopback with printers to print to, never touching /etc/cups.
#
#   cups.sh start DIR CUPS_PORT EVE_PORT   start dbus, ippeveprinter and cupsd under DIR
#   cups.sh stop DIR                        stop them by their PIDs
#   cups.sh restart DIR                     stop the scheduler alone and start it again
#
# Queues: "kps-virtual" (ippeveprinter, colour, keeps every document in DIR/eve with the job's
# attributes beside it in DOC.attrs),
# "kps-file" (fast, file:///dev/null), "kps-script" (backend DIR/serverbin/backend/kps-script,
# whose behaviour is read from DIR/script-mode: ok, media-empty, media-empty-stop,
# media-empty-hold, offline, fail, stop, hang; a waiting mode ends when the file says ok again
# or DIR/release-JOB exists, and each job that came out is a line, its id, in DIR/pages; with a
# count in DIR/media-left it reports the prints left and runs out at 0, as a driver that counts
# them in its marker level when DIR/media-counted exists); both
# with the virtual printer's paper (its PPD, kept as DIR/photo.ppd);
# "kps-ds620" and "kps-cp1300": Gutenprint's drivers for the DNP DS620 and the Canon SELPHY
# CP1300 (dye-sublimation photo printers), each running its whole filter chain into a file,
# DIR/out/QUEUE.prn; likewise "kps-dnp-qw410", "kps-fujifilm-ask-300" and "kps-hiti-p510k",
# whose drivers list cut and composite twins of their plain pages. The scheduler logs at debug
# level (a driver's "Using page size NAME" lines are in DIR/log/error_log) and every request it
# answers in DIR/log/access_log.
# Clients use CUPS_SERVER=localhost:CUPS_PORT.
set -euo pipefail

cmd=${1:?start or stop}
dir=$(realpath -m "${2:?state directory}")

stop() {
  for name in cupsd ippeveprinter dbus; do
    if [ -f "$dir/$name.pid" ]; then
      pid=$(cat "$dir/$name.pid")
      kill "$pid" 2>/dev/null || true
      for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
      kill -9 "$pid" 2>/dev/null || true
      rm -f "$dir/$name.pid"
    fi
  done
}

# The scheduler, in the foreground of a background job, answering before this returns.
start_cupsd() {
  cupsd -f -c "$dir/etc/cupsd.conf" -s "$dir/etc/cups-files.conf" >>"$dir/log/cupsd.out" 2>&1 &
  echo $! > "$dir/cupsd.pid"
  export CUPS_SERVER
  CUPS_SERVER=localhost:$(sed -n 's/^Listen 127.0.0.1://p' "$dir/etc/cupsd.conf")
  for _ in $(seq 100); do lpstat -r 2>/dev/null | grep -qx 'scheduler is running' && break; sleep 0.1; done
}

if [ "$cmd" = stop ]; then stop; exit 0; fi
if [ "$cmd" = restart ]; then
  pid=$(cat "$dir/cupsd.pid")
  kill "$pid"
  for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
  start_cupsd
  exit 0
fi

cups_port=${3:?cups port}
eve_port=${4:?ippeveprinter port}
mkdir -p "$dir"/{etc,spool/tmp,cache,state,log,run,serverbin,home,eve,out}
chmod 1777 "$dir/spool/tmp" "$dir/out"
chmod 755 "$dir" "$dir/spool" "$dir/eve"
trap 'stop' ERR

# Private ServerBin: the system's filters and backends plus a scriptable test backend.
for entry in /usr/lib/cups/*; do ln -sfn "$entry" "$dir/serverbin/$(basename "$entry")"; done
rm -f "$dir/serverbin/backend"
mkdir -p "$dir/serverbin/backend"
for entry in /usr/lib/cups/backend/*; do ln -sfn "$entry" "$dir/serverbin/backend/"; done
cat > "$dir/serverbin/backend/kps-script" <<SCRIPT
#!/bin/sh
[ \$# -eq 0 ] && { echo 'direct kps-script "Unknown" "kps test backend"'; exit 0; }
mode=\$(cat "$dir/script-mode" 2>/dev/null || echo ok)
echo "STATE: -media-empty-error,offline-report" >&2
# With DIR/media-left (a count), the prints left as a dye-sub driver reports them after every
# job, and out of paper at 0 until the count is raised (a refill).
left() { cat "$dir/media-left" 2>/dev/null; }
report() {
  n=\$(left)
  [ -z "\$n" ] && return 0
  # DIR/media-counted: a driver that counts, its level in prints of a 400-print roll.
  if [ -e "$dir/media-counted" ]; then
    echo "ATTR: marker-names=Ribbon marker-types=ribbonWax marker-levels=\$n marker-high-levels=400 marker-low-levels=40 marker-message='ribbon and paper loaded'" >&2
  else
    echo "ATTR: marker-names=Ribbon marker-types=ribbonWax marker-levels=\$((n * 100 / 400)) marker-low-levels=10 marker-message='\$n native prints remaining on 4x6 media'" >&2
  fi
  return 0
}
report
if [ "\$(left)" = 0 ]; then
  echo "STATE: +media-empty-error" >&2
  while [ "\$(left)" = 0 ] && [ ! -e "$dir/release-\$1" ]; do sleep 0.2; done
  echo "STATE: -media-empty-error" >&2
fi
# Out of paper the ways dye-sub drivers are: keep the job processing until the paper is back
# (media-empty), stop the queue (media-empty-stop) or hold the job (media-empty-hold); the
# scheduler runs the job again once the queue is resumed or the job released.
case "\$mode" in
  media-empty) echo "STATE: +media-empty-error" >&2 ;;
  media-empty-stop) echo "STATE: +media-empty-error" >&2; exit 4 ;;
  media-empty-hold) echo "STATE: +media-empty-error" >&2; exit 3 ;;
  offline) echo "STATE: +offline-report" >&2 ;;
  fail) exit 1 ;;
  stop) exit 4 ;;
esac
[ "\$mode" = hang ] && cat > /dev/null
# Paper out, offline or stalled mid-page until the mode says ok again, or DIR/release-JOB is
# there: then the page comes out.
while [ "\$mode" != ok ] && [ ! -e "$dir/release-\$1" ]; do
  sleep 0.2
  mode=\$(cat "$dir/script-mode" 2>/dev/null || echo ok)
done
echo "STATE: -media-empty-error,offline-report" >&2
cat > /dev/null
echo "\$1" >> "$dir/pages"
n=\$(left)
[ -n "\$n" ] && [ "\$n" -gt 0 ] && echo \$((n - 1)) > "$dir/media-left"
report
exit 0
SCRIPT
chmod 755 "$dir/serverbin/backend/kps-script"
echo ok > "$dir/script-mode"
: > "$dir/pages"
chmod 666 "$dir/script-mode" "$dir/pages"

cat > "$dir/etc/cups-files.conf" <<CONF
ServerRoot $dir/etc
RequestRoot $dir/spool
TempDir $dir/spool/tmp
CacheDir $dir/cache
StateDir $dir/state
ServerBin $dir/serverbin
AccessLog $dir/log/access_log
ErrorLog $dir/log/error_log
PageLog $dir/log/page_log
Printcap $dir/printcap
User lp
Group lp
SystemGroup root
FileDevice Yes
CONF
cat > "$dir/etc/cupsd.conf" <<CONF
Listen 127.0.0.1:$cups_port
Listen $dir/run/cups.sock
Browsing No
BrowseLocalProtocols none
WebInterface No
DefaultShared No
PreserveJobHistory Yes
LogLevel debug
AccessLogLevel all
MaxLogSize 0
<Location />
  Order allow,deny
  Allow localhost
</Location>
<Policy default>
  JobPrivateAccess all
  JobPrivateValues none
  <Limit All>
    Order deny,allow
  </Limit>
</Policy>
CONF

# What each job carried, as the virtual printer received it: DOC.attrs beside the kept DOC.
cat > "$dir/record-job" <<'SCRIPT'
#!/bin/sh
env | grep '^IPP_' | sort > "$1.attrs"
SCRIPT
chmod 755 "$dir/record-job"

# ippeveprinter needs a system bus; a private one is enough.
cat > "$dir/etc/dbus.conf" <<CONF
<busconfig>
  <type>system</type>
  <listen>unix:path=$dir/run/dbus.sock</listen>
  <auth>EXTERNAL</auth>
  <policy context="default"><allow user="*"/><allow own="*"/><allow send_type="method_call"/>
  <allow send_destination="*"/><allow receive_sender="*"/></policy>
</busconfig>
CONF
dbus-daemon --config-file="$dir/etc/dbus.conf" --nofork --nopidfile >"$dir/log/dbus.log" 2>&1 &
echo $! > "$dir/dbus.pid"
for _ in $(seq 50); do [ -S "$dir/run/dbus.sock" ] && break; sleep 0.1; done

DBUS_SYSTEM_BUS_ADDRESS="unix:path=$dir/run/dbus.sock" \
  ippeveprinter -n localhost -p "$eve_port" -r off -s 10,10 -k -d "$dir/eve" \
  -f image/jpeg,image/pwg-raster,application/pdf,application/postscript \
  -c "$dir/record-job" kps-virtual >"$dir/log/ippeveprinter.log" 2>&1 &
echo $! > "$dir/ippeveprinter.pid"

# At debug level the check also says which policy defaults it used: shown only when it fails.
if ! checked=$(cupsd -t -c "$dir/etc/cupsd.conf" -s "$dir/etc/cups-files.conf" 2>&1); then
  echo "$checked" >&2
  exit 1
fi
start_cupsd
for _ in $(seq 100); do
  ipptool -q "ipp://localhost:$eve_port/ipp/print" get-printer-attributes.test 2>/dev/null && break
  sleep 0.1
done

lpadmin -p kps-virtual -E -v "ipp://localhost:$eve_port/ipp/print" -m everywhere
for _ in $(seq 100); do [ -s "$dir/etc/ppd/kps-virtual.ppd" ] && break; sleep 0.05; done  # written after lpadmin returns
cp "$dir/etc/ppd/kps-virtual.ppd" "$dir/photo.ppd"
# lpadmin warns that printer drivers are deprecated; they still work.
lpadmin -p kps-file -E -v file:///dev/null -P "$dir/photo.ppd" 2>/dev/null
lpadmin -p kps-script -E -v kps-script:/test -P "$dir/photo.ppd" -o printer-error-policy=abort-job 2>/dev/null
lpadmin -p kps-ds620 -E -v "file://$dir/out/kps-ds620.prn" -m gutenprint.5.3://dnp-ds620/expert 2>/dev/null
lpadmin -p kps-cp1300 -E -v "file://$dir/out/kps-cp1300.prn" -m gutenprint.5.3://canon-cp1300/expert 2>/dev/null
# Drivers that list cut and composite twins at a plain page's size, some before it.
for model in dnp-qw410 fujifilm-ask-300 hiti-p510k; do
  lpadmin -p "kps-$model" -E -v "file://$dir/out/kps-$model.prn" -m "gutenprint.5.3://$model/expert" 2>/dev/null
done
trap - ERR
echo "cups.sh: scheduler on localhost:$cups_port (pid $(cat "$dir/cupsd.pid")), printer on port $eve_port"
