#!/bin/sh
# Stands in for the AAC decoder: what the file holds is what it prints, when it is called as "-i FILE".
[ $# -eq 2 ] && [ "$1" = -i ] && exec cat -- "$2"
echo "$*"
