# DetachDrive.ps1 -KeyFile SECn.iscsi: flushes and disconnects what AttachDrive.ps1 attached. Needs an elevated
# shell. When Windows refuses because the drive is in use, the programs that run from it or have a window on
# it are named as far as Windows tells; the drive stays attached then (exit code 1).
param([Parameter(Mandatory = $true)] [string] $KeyFile)

$ErrorActionPreference = 'Stop'

$keys = ConvertFrom-StringData (Get-Content -LiteralPath $KeyFile -Raw)
$driveFile = [IO.Path]::ChangeExtension($KeyFile, '.drive')
$portal = @{ TargetPortalAddress = $keys.address; TargetPortalPortNumber = [uint16]$keys.port }

function Get-Holders([string[]] $letters) {
    Get-Process | Where-Object {
        $process = $_
        $letters | Where-Object { $process.Path -like "${_}\*" -or $process.MainWindowTitle -like "*${_}*" }
    } | ForEach-Object { "$($_.ProcessName) ($($_.Id))" }
}

$session = Get-IscsiSession -ErrorAction SilentlyContinue | Where-Object { $_.TargetNodeAddress -eq $keys.target }
$letters = @()
if ($session) {
    $disk = $session | Get-Disk -ErrorAction SilentlyContinue
    if ($disk) {
        $letters = @(Get-Partition -DiskNumber $disk.Number -ErrorAction SilentlyContinue |
                Where-Object { $_.DriveLetter } | ForEach-Object { "$($_.DriveLetter):" })
        foreach ($letter in $letters) {
            Write-VolumeCache -DriveLetter $letter.Substring(0, 1)
        }
    }
    try {
        Disconnect-IscsiTarget -NodeAddress $keys.target -Confirm:$false
    }
    catch {
        Write-Host $_
        Write-Host "Programs that use $($letters -join ' '): $((Get-Holders $letters) -join ', ')"
        Read-Host 'The drive stays attached. Enter ends'
        exit 1
    }
}
Remove-IscsiTargetPortal @portal -Confirm:$false -ErrorAction SilentlyContinue
Remove-Item -LiteralPath $driveFile -ErrorAction SilentlyContinue
