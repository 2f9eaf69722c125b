# Sourced by the scripts that run the program with settings of their own, in a folder of their own.

# run_program FOLDER ARGUMENT... : the program as cron would start it, with FOLDER as its home.
run_program() {
  local folder=$1
  shift
  mkdir -p "$folder/home" "$folder/runtime"
  chmod 700 "$folder/runtime"
  env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM -u XDG_DATA_HOME HOME="$folder/home" \
    XDG_CONFIG_HOME="$folder/home/.config" XDG_RUNTIME_DIR="$folder/runtime" "$folder/bin/Skyreel" "$@"
}

# install_program FOLDER EXECUTABLE : gives FOLDER a program and lets it write its default settings.
install_program() {
  local folder=$1 executable=$2
  mkdir -p "$folder/bin"
  # A link where that works: the program's folder is where its own file is, so a symbolic link will not do.
  ln -f "$executable" "$folder/bin/Skyreel" 2>/dev/null || cp -f "$executable" "$folder/bin/Skyreel"
  run_program "$folder" -CLOSE >/dev/null 2>&1
}

# set_values FOLDER < lines "Name=value" : puts these values in the place of the stored ones. Fails when the
# program knows no setting of a name.
set_values() {
  local file=$1/home/.config/Quenmoor/Skyreel.conf line
  while IFS= read -r line; do
    [ -n "$line" ] || continue
    grep -q "^${line%%=*}=" "$file" || { echo "unknown setting: ${line%%=*}" >&2; return 1; }
    SETTING=${line%%=*}= LINE=$line awk 'index($0, ENVIRON["SETTING"]) == 1 { $0 = ENVIRON["LINE"] } { print }' \
      "$file" >"$file.new"
    mv "$file.new" "$file"
  done
}

# point_at FOLDER HTTP_ROOT FTP_ROOT : lets every source ask these servers.
point_at() {
  local file=$1/home/.config/Quenmoor/Skyreel.conf name
  {
    sed -n 's/^\(Server[^=]*\)=.*/\1/p' "$file" | while read -r name; do
      case "$name" in
        ServerEuDA | ServerMSFC) echo "$name=\"$3\"" ;;
        *) echo "$name=\"$2\"" ;;
      esac
    done
    echo "BracknellURL=\"$2/wz/pics/bracka.gif\""
  } | set_values "$1"
}
