#!/bin/sh
### BEGIN INIT INFO
# Provides:          veloagent
# Required-Start:    $remote_fs $network
# Required-Stop:     $remote_fs $network
# Default-Start:     2 3 4 5
# Default-Stop:      0 1 6
# Short-Description: Camera agent
# Description:       Joins a camera's control interface and a camera cloud.
### END INIT INFO
# All that the package has as a conffile. It stays as it is in every version: an upgrade asks whoever has edited a conffile
# that changes. What does change is in the script that it calls; settings are in /etc/default/veloagent.
script=/usr/lib/veloagent/S90veloagent
[ -x $script ] || exit 0
case $1 in
  start | stop | restart | force-reload | status) exec $script "$1" ;;
  *) echo "usage: $0 {start|stop|restart|force-reload|status}" >&2; exit 2 ;;
esac
