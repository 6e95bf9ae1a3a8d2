#!/bin/sh
# Stand-in service script of the appliance skeleton: records what it was asked into the
# appliance root's service log, so that tests and the demo can see the stops and starts.
mkdir -p "${KOVA_ROOT:-}/var/log"
echo "${0##*/} $1" >> "${KOVA_ROOT:-}/var/log/services.log"
