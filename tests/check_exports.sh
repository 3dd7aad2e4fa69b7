#!/bin/sh
# The C entry points must stay exported under their plain, unmangled names: hosts resolve them by name.
lib="$1"
status=0
for name in zq_someip_log_output zq_someip_set_logfunc_callback g_logfunc \
            zq_someip_log_base_info zq_someip_log_base_debug zq_someip_log_base_warn zq_someip_log_base_error \
            zq_someip_base_log_base_info zq_someip_base_log_base_debug zq_someip_base_log_base_warn \
            zq_someip_base_log_base_error; do
  if ! nm -D --defined-only "$lib" | awk '{print $3}' | grep -qx "$name"; then
    echo "not exported: $name"
    status=1
  fi
done
exit $status
